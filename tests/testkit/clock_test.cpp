#include <gtest/gtest.h>
#include <qovpub/qov_testkit.h>

#include <chrono>
#include <functional>
#include <stdexcept>
#include <vector>

namespace {

using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

constexpr unsigned int kModule = 42;
constexpr std::uint8_t kOther = 43;
constexpr std::uint64_t kRead = 1;

class Sweep : public QOVPeriodicTask {
 public:
  Sweep(QOVTestKit& kit, Duration period, Duration first)
      : QOVPeriodicTask(kit.module()), kit_(kit) {
    every(period, first);
  }

  void tick() override {
    times_.push_back(kit_.now());
    current_ = getCurrentTask();
    if (does_) {
      does_();
    }
  }

  QOVTestKit& kit_;
  std::vector<QOVTestKit::Duration> times_;
  CQOV_Task* current_ = nullptr;
  std::function<void()> does_;
};

/// Ticks every 10 seconds until a message sets another period.
class AdjustableSweep : public QOVStaticHandlers<AdjustableSweep, QOVPeriodicTask> {
 public:
  explicit AdjustableSweep(CQOV_TaskMgr* module)
      : QOVStaticHandlers(module, {{kRead, &AdjustableSweep::adjust}}) {
    every(next_);
  }

  void tick() override {}

  seconds next_{10};

 private:
  int adjust(CQOV_MsgPackage&, CQOV_MsgPackage&) {
    every(next_);
    return 0;
  }
};

using Times = std::vector<QOVTestKit::Duration>;

TEST(TestKitClock, CallsTheTicksThatAreDueOnTheWay) {
  QOVTestKit kit(kModule);
  Sweep sweep(kit, minutes(5), minutes(1));
  kit.start(sweep);

  EXPECT_EQ(kit.advance(minutes(1) - milliseconds(1)), 0U);
  EXPECT_EQ(kit.advance(milliseconds(1)), 1U);
  EXPECT_EQ(kit.advance(minutes(14)), 2U);

  EXPECT_EQ(sweep.times_, (Times{minutes(1), minutes(6), minutes(11)}));
  EXPECT_EQ(kit.now(), minutes(15));
  EXPECT_EQ(sweep.current_, &sweep);
}

TEST(TestKitClock, CallsAFirstTickThatIsDueAtOnce) {
  QOVTestKit kit(kModule);
  Sweep sweep(kit, minutes(5), seconds(0));
  kit.start(sweep);

  EXPECT_EQ(kit.advance(seconds(0)), 1U);
  EXPECT_EQ(kit.advance(seconds(0)), 0U);
}

TEST(TestKitClock, CallsTheTicksOfSeveralTasksInTheirOrder) {
  QOVTestKit kit(kModule);
  Times all;
  Sweep slow(kit, seconds(5), seconds(5));
  Sweep fast(kit, seconds(2), seconds(2));
  slow.does_ = fast.does_ = [&] { all.push_back(kit.now()); };
  kit.start(slow);
  kit.start(fast);

  EXPECT_EQ(kit.advance(seconds(6)), 4U);
  EXPECT_EQ(all, (Times{seconds(2), seconds(4), seconds(5), seconds(6)}));
}

TEST(TestKitClock, CallsNoTickOfATaskWithoutAPeriod) {
  QOVTestKit kit(kModule);
  Sweep sweep(kit, seconds(0), seconds(0));
  kit.start(sweep);

  EXPECT_EQ(kit.advance(minutes(1)), 0U);
}

TEST(TestKitClock, StartsAnewWhenATickChangesThePeriod) {
  QOVTestKit kit(kModule);
  Sweep sweep(kit, seconds(10), seconds(10));
  sweep.does_ = [&] { sweep.every(seconds(3)); };
  kit.start(sweep);

  kit.advance(seconds(16));
  EXPECT_EQ(sweep.times_, (Times{seconds(10), seconds(13), seconds(16)}));
}

TEST(TestKitClock, IsMovedByATimeOut) {
  QOVTestKit kit(kModule);
  kit.fail(kOther, kRead, QOVReason::kTimedOut);
  Sweep sweep(kit, seconds(10), seconds(10));

  static_cast<void>(QOVRequest(sweep, kOther, kRead).ask(milliseconds(2500)));
  EXPECT_EQ(kit.now(), milliseconds(2500));

  kit.fail(kOther, kRead, QOVReason::kNoReceiver);
  static_cast<void>(QOVRequest(sweep, kOther, kRead).ask(seconds(1)));
  EXPECT_EQ(kit.now(), milliseconds(2500));
}

TEST(TestKitClock, LeavesOutTheTimesThatPassDuringATick) {
  QOVTestKit kit(kModule);
  kit.fail(kOther, kRead, QOVReason::kTimedOut);
  Sweep sweep(kit, seconds(10), seconds(10));
  sweep.does_ = [&] {
    if (kit.now() == seconds(10)) {
      static_cast<void>(QOVRequest(sweep, kOther, kRead).ask(seconds(25)));
    }
  };
  kit.start(sweep);

  EXPECT_EQ(kit.advance(seconds(50)), 3U);
  EXPECT_EQ(sweep.times_, (Times{seconds(10), seconds(40), seconds(50)}));
  EXPECT_EQ(sweep.missed(), 2U);
}

TEST(TestKitClock, CallsATickThatIsDueWhenTheOneBeforeEnds) {
  QOVTestKit kit(kModule);
  kit.fail(kOther, kRead, QOVReason::kTimedOut);
  Sweep sweep(kit, seconds(10), seconds(10));
  sweep.does_ = [&] {
    if (kit.now() == seconds(10)) {
      static_cast<void>(QOVRequest(sweep, kOther, kRead).ask(seconds(20)));
    }
  };
  kit.start(sweep);

  kit.advance(seconds(30));
  EXPECT_EQ(sweep.times_, (Times{seconds(10), seconds(30)}));
  EXPECT_EQ(sweep.missed(), 1U);
}

TEST(TestKitClock, StartsAnewWhenAMessageChangesThePeriod) {
  QOVTestKit kit(kModule);
  AdjustableSweep sweep(kit.module());
  kit.start(sweep);

  EXPECT_EQ(kit.advance(seconds(3)), 0U);
  sweep.next_ = seconds(2);
  CQOV_MsgPackage request = kit.message(kRead);
  EXPECT_TRUE(kit.ask(sweep, request));
  EXPECT_EQ(kit.advance(seconds(6)), 3U);
}

TEST(TestKitClock, StartsAnewWhenItIsToldTheSamePeriodAgain) {
  QOVTestKit kit(kModule);
  AdjustableSweep sweep(kit.module());
  kit.start(sweep);

  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(kit.advance(seconds(9)), 0U);
    CQOV_MsgPackage request = kit.message(kRead);
    EXPECT_TRUE(kit.ask(sweep, request));
  }
  EXPECT_EQ(kit.advance(seconds(10)), 1U);
}

TEST(TestKitClock, GoesOnAfterATickThatThrows) {
  QOVTestKit kit(kModule);
  Sweep sweep(kit, seconds(10), seconds(10));
  sweep.does_ = [&] {
    if (kit.now() == seconds(10)) {
      throw std::runtime_error("not this time");
    }
  };
  kit.start(sweep);

  EXPECT_THROW(kit.advance(seconds(30)), std::runtime_error);
  EXPECT_EQ(kit.now(), seconds(10));
  EXPECT_EQ(getCurrentTask(), nullptr);
  EXPECT_EQ(kit.advance(seconds(10)), 1U);
  EXPECT_EQ(sweep.times_, (Times{seconds(10), seconds(20)}));
}

}  // namespace
