#include <gtest/gtest.h>
#include <qovpub/qov_handlers.h>
#include <qovpub/qov_periodic_task.h>
#include <qovpub/qov_request.h>

#include <chrono>
#include <functional>
#include <limits>
#include <stdexcept>
#include <thread>
#include <utility>

#include "task/period_schedule.h"
#include "tests/task/task_fixture.h"

namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::nanoseconds;
using Clock = std::chrono::steady_clock;

constexpr std::uint64_t kAsked = 1;
constexpr std::uint64_t kSilent = 2;

/// Runs a function at each tick and answers one operation.
class FunctionPeriodicTask : public QOVStaticHandlers<FunctionPeriodicTask, QOVPeriodicTask> {
 public:
  using Tick = std::function<void(FunctionPeriodicTask&)>;

  FunctionPeriodicTask(CQOV_TaskMgr* module, Tick tick)
      : QOVStaticHandlers(module, {{kAsked, &FunctionPeriodicTask::answers}}),
        tick_(std::move(tick)) {}

  void tick() override {
    ++ticks_;
    tick_(*this);
    over_.count();
  }

  int ticks() const { return ticks_; }
  bool waitFor(int ticks) { return over_.waitFor(ticks); }

 private:
  int answers(CQOV_MsgPackage&, CQOV_MsgPackage&) { return 0; }

  const Tick tick_;
  std::atomic<int> ticks_{0};
  Latch over_;
};

void doNothing(FunctionPeriodicTask&) {}

/// A module without workers; nobody answers kSilent.
class PeriodicTaskTest : public TaskTest {
 protected:
  void start(FunctionPeriodicTask& task) {
    ASSERT_TRUE(module_.init());
    ASSERT_EQ(0, module_.insertStaticScheduledTask(&task));
  }

  TestModule module_{ignore, 0};
  CQOV_Task asker_{&module_};
};

}  // namespace

TEST(PeriodSchedule, MovesOnByOnePeriodHoweverLateItWas) {
  const Clock::time_point start(hours(1));
  Clock::time_point due = start;
  EXPECT_EQ(0U, qov::moveOn(due, milliseconds(10), start + milliseconds(9)));
  EXPECT_EQ(start + milliseconds(10), due);
  // The moment itself is not past.
  EXPECT_EQ(0U, qov::moveOn(due, milliseconds(10), start + milliseconds(20)));
  EXPECT_EQ(start + milliseconds(20), due);
}

TEST(PeriodSchedule, LeavesOutAndCountsWhatHasPassed) {
  const Clock::time_point start(hours(1));
  Clock::time_point due = start;
  EXPECT_EQ(1U, qov::moveOn(due, milliseconds(10), start + milliseconds(10) + nanoseconds(1)));
  EXPECT_EQ(start + milliseconds(20), due);
  EXPECT_EQ(3U, qov::moveOn(due, milliseconds(10), start + milliseconds(60)));
  EXPECT_EQ(start + milliseconds(60), due);
}

TEST_F(PeriodicTaskTest, TicksAgainAndAgain) {
  FunctionPeriodicTask task(&module_, doNothing);
  task.every(milliseconds(1));
  start(task);
  EXPECT_TRUE(task.waitFor(3));
  module_.stop();
}

TEST_F(PeriodicTaskTest, TicksAtOnceWhereItIsToldTo) {
  FunctionPeriodicTask task(&module_, doNothing);
  task.every(hours(1), hours(0));
  start(task);
  EXPECT_TRUE(task.waitFor(1));
  module_.stop();
  EXPECT_EQ(1, task.ticks());
  EXPECT_EQ(0U, task.missed());
}

TEST_F(PeriodicTaskTest, TheStopEndsTheWaitForTheNextTick) {
  FunctionPeriodicTask task(&module_, doNothing);
  task.every(nanoseconds::max());
  start(task);
  ASSERT_TRUE(QOVRequest(asker_, kModule, kAsked).ask(minutes(1)));
  module_.stop();
  EXPECT_EQ(0, task.ticks());
}

TEST_F(PeriodicTaskTest, TheStopEndsARequestOfATick) {
  Latch asks;
  FunctionPeriodicTask task(&module_, [&](CQOV_Task& self) {
    asks.count();
    EXPECT_EQ(QOVReason::kStopped, QOVRequest(self, kModule, kSilent).ask().reason());
  });
  task.every(hours(1), hours(0));
  start(task);
  ASSERT_TRUE(asks.waitFor());
  module_.stop();
}

TEST_F(PeriodicTaskTest, LeavesOutAndCountsTheTicksThatALongOneHasMissed) {
  FunctionPeriodicTask task(&module_, [](FunctionPeriodicTask& self) {
    const Clock::time_point end = Clock::now() + milliseconds(20);
    while (self.ticks() == 1 && Clock::now() < end) {
      std::this_thread::yield();
    }
  });
  task.every(milliseconds(1), hours(0));
  start(task);
  EXPECT_TRUE(task.waitFor(2));
  EXPECT_LE(19U, task.missed());
  module_.stop();
}

TEST_F(PeriodicTaskTest, ServesItsOperationsBetweenTwoTicks) {
  FunctionPeriodicTask task(&module_, doNothing);
  task.every(hours(1));
  start(task);
  EXPECT_TRUE(QOVRequest(asker_, kModule, kAsked).ask(minutes(1)));
  EXPECT_EQ(0, task.ticks());
  module_.stop();
}

TEST_F(PeriodicTaskTest, ATickThatIsAlwaysDueKeepsNoMessageOut) {
  FunctionPeriodicTask task(&module_, doNothing);
  task.every(nanoseconds(1), hours(0));
  start(task);
  EXPECT_TRUE(QOVRequest(asker_, kModule, kAsked).ask(minutes(1)));
  module_.stop();
}

TEST_F(PeriodicTaskTest, MessagesThatNeverEndKeepNoTickOut) {
  FunctionPeriodicTask task(&module_, doNothing);
  FunctionStaticTask feeder(&module_, {kSilent}, [&task](CQOV_Task& self, CQOV_MsgPackage&) {
    // Two at a time, until the task has ticked.
    for (int i = 0; i < 2 && task.ticks() < 2; ++i) {
      QOVRequest(self, kModule, kAsked).tell(milliseconds(0));
    }
    if (task.ticks() < 2) {
      QOVRequest(self, kModule, kSilent).tell(milliseconds(0));
    }
    return 0;
  });
  task.every(milliseconds(1));
  start(task);
  ASSERT_EQ(0, module_.insertStaticScheduledTask(&feeder));
  QOVRequest(asker_, kModule, kSilent).tell();
  EXPECT_TRUE(task.waitFor(2));
  module_.stop();
}

TEST_F(PeriodicTaskTest, GoesOnAfterATickThatThrows) {
  FunctionPeriodicTask task(&module_, [](FunctionPeriodicTask& self) {
    if (self.ticks() == 1) {
      throw std::runtime_error("no luck");
    }
  });
  task.every(milliseconds(1));
  start(task);
  EXPECT_TRUE(task.waitFor(1));
  EXPECT_EQ(1, log_.count("Module(20) a tick failed: no luck"));
  module_.stop();
}

TEST_F(PeriodicTaskTest, APeriodOfNothingEndsTheTicks) {
  FunctionPeriodicTask task(&module_, [](FunctionPeriodicTask& self) { self.every(hours(0)); });
  task.every(nanoseconds(1), hours(0));
  start(task);
  ASSERT_TRUE(task.waitFor(1));
  for (int i = 0; i < 10; ++i) {
    ASSERT_TRUE(QOVRequest(asker_, kModule, kAsked).ask(minutes(1)));
  }
  module_.stop();
  EXPECT_EQ(1, task.ticks());
}

TEST_F(PeriodicTaskTest, ATickMayChangeThePeriod) {
  FunctionPeriodicTask task(&module_, [](FunctionPeriodicTask& self) {
    if (self.ticks() == 1) {
      self.every(milliseconds(1));
    }
  });
  task.every(hours(1), hours(0));
  start(task);
  EXPECT_TRUE(task.waitFor(3));
  module_.stop();
}
