#include <ace/Reactor.h>
#include <ace/Timer_Queue.h>
#include <gtest/gtest.h>
#include <qovpub/qov_request.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "task/handler_watch.h"
#include "task/module_counters.h"
#include "task/pending_requests.h"
#include "task/running_handlers.h"
#include "tests/task/task_fixture.h"

namespace {

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::nanoseconds;
using std::chrono::seconds;

constexpr std::uint8_t kBeside = kModule + 1;
constexpr const char* kLate = "a handler has run for ";

/// A module whose handler waits at a gate, after doing what the test says.
class HeldModule : public TestModule {
 public:
  explicit HeldModule(unsigned int id = kModule, unsigned int pool = 2)
      : TestModule(
            [this](CQOV_Task& task, CQOV_MsgPackage& message) { return hold(task, message); }, pool,
            id),
        task_(this) {}
  ~HeldModule() override {
    gate_.count();
    stop();
  }

  /// Has a handler begin with a notice of `opc`.
  void begin(std::uint64_t opc) {
    ASSERT_EQ(QOVReason::kNone,
              QOVRequest(task_, static_cast<std::uint8_t>(moduleId()), opc).tell());
    ASSERT_TRUE(began_.waitFor(++begun_));
  }

  int hold(CQOV_Task& task, CQOV_MsgPackage& message) {
    const auto act = act_;
    began_.count();
    if (act) {
      act(task);
    }
    EXPECT_TRUE(gate_.waitFor());
    // The handler may change what it was given.
    message.head().opc_ = 0;
    return 0;
  }

  std::function<void(CQOV_Task&)> act_;
  Latch began_;
  Latch gate_;
  CQOV_Task task_;

 private:
  int begun_ = 0;
};

class HandlerLimitTest : public TaskTest {
 protected:
  /// Waits for the record of a handler that is begun now, in a module of its own. What is late
  /// before that has been told of then.
  void seeAnotherRecord() {
    HeldModule beside(kBeside);
    beside.handlerLimit(milliseconds(1));
    ASSERT_TRUE(beside.init());
    beside.begin(4711);
    EXPECT_TRUE(log_.waitFor("OPC=4711,"));
  }

  /// Runs `module` with a handler that is not told of.
  void seeNoRecordOf(HeldModule& module) {
    ASSERT_TRUE(module.init());
    module.begin(1);
    seeAnotherRecord();
    module.gate_.count();
    module.stop();
    EXPECT_EQ(1, log_.count(kLate));
  }
};

}  // namespace

TEST_F(HandlerLimitTest, OneThatRunsLongerIsToldOfWhileItRunsAndOnce) {
  HeldModule module;
  module.handlerLimit(milliseconds(1));
  ASSERT_TRUE(module.init());
  module.begin(4242);
  EXPECT_TRUE(log_.waitFor("Module(20) a handler has run for "));
  EXPECT_TRUE(log_.waitFor(" ms, longer than its limit of 1 ms: SPID=7,SMID=20,OPC=4242,SN=0x"));
  EXPECT_TRUE(log_.waitFor(",TP=3; none of its requests is pending"));
  // By when the leader has looked again.
  module.begin(4243);
  EXPECT_TRUE(log_.waitFor("OPC=4243,"));
  module.gate_.count();
  module.stop();
  EXPECT_EQ(1, log_.count("OPC=4242,"));
  EXPECT_EQ(1, log_.count("OPC=4243,"));
}

TEST_F(HandlerLimitTest, EachMessageIsToldOfAnew) {
  HeldModule module(kModule, 1);
  module.handlerLimit(milliseconds(1));
  ASSERT_TRUE(module.init());
  module.begin(1);
  EXPECT_TRUE(log_.waitFor("OPC=1,"));
  module.act_ = [this](CQOV_Task&) { EXPECT_TRUE(log_.waitFor("OPC=2,")); };
  module.gate_.count();
  module.begin(2);
  EXPECT_TRUE(log_.waitFor("OPC=2,"));
  module.stop();
  EXPECT_EQ(2, log_.count(kLate));
}

TEST_F(HandlerLimitTest, WithoutALimitNothingIsToldOf) {
  HeldModule module;
  seeNoRecordOf(module);
}

TEST_F(HandlerLimitTest, OneInsideTheLimitIsNotToldOf) {
  HeldModule module;
  module.handlerLimit(hours(1));
  seeNoRecordOf(module);
}

TEST_F(HandlerLimitTest, TheLongestLimitIsOne) {
  HeldModule module;
  module.handlerLimit(milliseconds::max());
  seeNoRecordOf(module);
}

TEST_F(HandlerLimitTest, MayBeSetAndTakenAwayWhileTheModuleRuns) {
  HeldModule module(kModule, 3);
  ASSERT_TRUE(module.init());
  module.begin(1);
  module.handlerLimit(milliseconds(1));
  module.begin(2);
  EXPECT_TRUE(log_.waitFor("OPC=2,"));
  module.handlerLimit(milliseconds(0));
  module.begin(3);
  seeAnotherRecord();
  EXPECT_EQ(0, log_.count("OPC=1,"));
  EXPECT_EQ(0, log_.count("OPC=3,"));
}

TEST_F(HandlerLimitTest, AShorterLimitCountsAtOnceForThoseThatAreNoted) {
  HeldModule module;
  module.handlerLimit(hours(1));
  ASSERT_TRUE(module.init());
  module.begin(1);
  module.handlerLimit(milliseconds(1));
  EXPECT_TRUE(log_.waitFor("longer than its limit of 1 ms: SPID=7,SMID=20,OPC=1,"));
}

TEST_F(HandlerLimitTest, TellsForHowLongAHandlerHasWaitedForWhichAnswer) {
  HeldModule module;
  module.handlerLimit(hours(1));
  std::optional<QOVReason> reason;
  module.act_ = [&](CQOV_Task& task) {
    // Not the one that is asked.
    if (module.began_.counted() == 1) {
      QOVRequest request(task, kModule, 99);
      request.message().head().sn_ = 0xABC;
      reason = request.ask(minutes(1)).reason();
    }
  };
  ASSERT_TRUE(module.init());
  module.begin(7);
  ASSERT_TRUE(module.began_.waitFor(2));
  module.handlerLimit(milliseconds(1));
  EXPECT_TRUE(log_.waitFor("OPC=7,"));
  EXPECT_TRUE(log_.waitFor(",TP=3; its request has been pending for "));
  EXPECT_TRUE(log_.waitFor(" ms: RPID=7,RMID=20,OPC=99,SN=0xabc"));
  module.gate_.count();
  module.stop();
  EXPECT_EQ(QOVReason::kStopped, reason);
}

TEST_F(HandlerLimitTest, CountsForStaticTasks) {
  HeldModule module(kModule, 0);
  module.handlerLimit(milliseconds(1));
  FunctionStaticTask held(&module, {5}, [&](CQOV_Task& task, CQOV_MsgPackage& message) {
    return module.hold(task, message);
  });
  ASSERT_TRUE(module.init());
  ASSERT_EQ(0, module.insertStaticScheduledTask(&held));
  module.begin(5);
  EXPECT_TRUE(log_.waitFor("SMID=20,OPC=5,"));
  module.gate_.count();
  module.stop();
}

TEST_F(HandlerLimitTest, TellsOfAContinuationByTheResponseThatItIsFor) {
  HeldModule module(kModule, 1);
  module.handlerLimit(milliseconds(1));
  ASSERT_TRUE(module.init());
  QOVRequest request(module.task_, 200, 6);
  request.message().head().sn_ = 0xABC;
  ASSERT_EQ(QOVReason::kNone, request.askLater(minutes(1), [&](const QOVAnswer&) {
    EXPECT_TRUE(log_.waitFor(": SPID=7,SMID=200,OPC=6,SN=0xabc,TP=2; "));
    module.gate_.count();
  }));
  EXPECT_TRUE(module.gate_.waitFor());
}

TEST_F(HandlerLimitTest, AModuleStopsWhileAHandlerIsWatched) {
  HeldModule module;
  module.handlerLimit(seconds(3600));
  ASSERT_TRUE(module.init());
  module.begin(1);
  module.gate_.count();
  module.stop();
  module.handlerLimit(milliseconds(1));
  EXPECT_EQ(0, log_.count(kLate));
}

namespace {

class RunningHandlersTest : public ::testing::Test {
 protected:
  using Clock = qov::RunningHandlers::Clock;

  RunningHandlersTest() {
    all_.limit(seconds(10));
    all_.wakeBy([this] { ++wakes_; });
  }

  /// One that begins `offset` after the test.
  qov::RunningHandler beganAt(Clock::duration offset, std::uint64_t opc = 1) {
    QOVMsgHead head;
    head.opc_ = opc;
    return {head, &task_, begin_ + offset};
  }

  /// The operation code of the next late handler after `elapsed`; 0 when there is none.
  std::uint64_t lateAfter(Clock::duration elapsed) {
    const auto late = all_.takeLate(begin_ + elapsed);
    return late ? late->message_.opc_ : 0;
  }

  /// When the next one is late, by the test's beginning; 0 when none runs.
  Clock::duration nextLate() {
    const auto next = all_.nextLate();
    return next ? *next - begin_ : Clock::duration::zero();
  }

  CQOV_Task task_{nullptr};
  qov::RunningHandlers all_;
  int wakes_ = 0;
  const Clock::time_point begin_ = Clock::now();
};

}  // namespace

TEST_F(RunningHandlersTest, OneIsLateBehindTheLimitAndNotAtIt) {
  const qov::RunningHandlers::Entry handler(all_, beganAt(seconds(0), 5));
  EXPECT_EQ(0U, lateAfter(seconds(10)));
  EXPECT_EQ(5U, lateAfter(seconds(10) + nanoseconds(1)));
  EXPECT_EQ(0U, lateAfter(seconds(20)));
}

TEST_F(RunningHandlersTest, NoneIsLateWithinTheLongestLimit) {
  all_.limit(milliseconds::max());
  const qov::RunningHandlers::Entry handler(all_, beganAt(seconds(0)));
  EXPECT_EQ(0U, lateAfter(hours(24)));
  EXPECT_LT(hours(24), nextLate());
}

TEST_F(RunningHandlersTest, OneThatHasEndedIsNotLate) {
  { const qov::RunningHandlers::Entry handler(all_, beganAt(seconds(0))); }
  EXPECT_EQ(0U, lateAfter(seconds(20)));
}

TEST_F(RunningHandlersTest, TheLongestIsTheFirst) {
  const qov::RunningHandlers::Entry second(all_, beganAt(seconds(2), 2));
  const qov::RunningHandlers::Entry third(all_, beganAt(seconds(3), 3));
  const qov::RunningHandlers::Entry first(all_, beganAt(seconds(1), 1));
  EXPECT_EQ(1U, lateAfter(seconds(13)));
  EXPECT_EQ(2U, lateAfter(seconds(13)));
  EXPECT_EQ(0U, lateAfter(seconds(13)));
  EXPECT_EQ(3U, lateAfter(seconds(14)));
}

TEST_F(RunningHandlersTest, ThoseInTheMiddleMayEndInAnyOrder) {
  std::optional<qov::RunningHandlers::Entry> first(std::in_place, all_, beganAt(seconds(1), 1));
  std::optional<qov::RunningHandlers::Entry> second(std::in_place, all_, beganAt(seconds(2), 2));
  std::optional<qov::RunningHandlers::Entry> third(std::in_place, all_, beganAt(seconds(3), 3));
  second.reset();
  EXPECT_EQ(1U, lateAfter(seconds(100)));
  first.reset();
  EXPECT_EQ(seconds(13), nextLate());
  EXPECT_EQ(3U, lateAfter(seconds(100)));
  third.reset();
  EXPECT_EQ(seconds(0), nextLate());
}

TEST_F(RunningHandlersTest, KnowsWhenTheNextOneMayBeLate) {
  EXPECT_EQ(seconds(0), nextLate());
  const qov::RunningHandlers::Entry handler(all_, beganAt(seconds(1)));
  EXPECT_EQ(seconds(11), nextLate());
  EXPECT_EQ(1U, lateAfter(seconds(12)));
  EXPECT_EQ(seconds(0), nextLate());
}

TEST_F(RunningHandlersTest, TheFirstToBeginWakesWhoHasFoundNone) {
  { const qov::RunningHandlers::Entry unwatchedYet(all_, beganAt(seconds(0))); }
  EXPECT_TRUE(all_.hasChanged());
  EXPECT_EQ(0, wakes_);
  EXPECT_EQ(seconds(0), nextLate());
  const qov::RunningHandlers::Entry first(all_, beganAt(seconds(1)));
  const qov::RunningHandlers::Entry second(all_, beganAt(seconds(2)));
  EXPECT_EQ(1, wakes_);
  EXPECT_TRUE(all_.hasChanged());
}

TEST_F(RunningHandlersTest, WithoutALimitNothingIsNoted) {
  all_.limit(seconds(0));
  const qov::RunningHandlers::Entry handler(all_, beganAt(seconds(0)));
  all_.limit(seconds(10));
  EXPECT_EQ(0U, lateAfter(seconds(20)));
}

TEST_F(RunningHandlersTest, TellsOnceThatTheLimitHasChanged) {
  EXPECT_TRUE(all_.hasChanged());
  EXPECT_FALSE(all_.hasChanged());
  all_.limit(seconds(0));
  EXPECT_TRUE(all_.hasChanged());
}

namespace {

class HandlerWatchTest : public ::testing::Test {
 protected:
  HandlerWatchTest() : watch_(std::in_place, kModule, reactor_, handlers_, pending_) {
    handlers_.wakeBy([this] { watch_->follow(); });
    handlers_.limit(hours(1));
    watch_->follow();
  }

  bool hasTimer() { return !reactor_.timer_queue()->is_empty(); }

  CQOV_Task task_{nullptr};
  qov::ModuleCounters counters_{kModule};
  qov::RunningHandlers handlers_;
  ACE_Reactor reactor_;
  const qov::PendingRequests pending_{reactor_, task_, counters_};
  std::optional<qov::HandlerWatch> watch_;
};

}  // namespace

TEST_F(HandlerWatchTest, HasNoTimerWhileNoHandlerRuns) {
  EXPECT_FALSE(hasTimer());
  {
    const qov::RunningHandlers::Entry handler(
        handlers_, {QOVMsgHead(), &task_, qov::RunningHandlers::Clock::now()});
    EXPECT_TRUE(hasTimer());
  }
  // It looks again when nothing runs any more.
  handlers_.limit(hours(1));
  watch_->follow();
  EXPECT_FALSE(hasTimer());
}

TEST_F(HandlerWatchTest, EndsItsTimer) {
  const qov::RunningHandlers::Entry handler(
      handlers_, {QOVMsgHead(), &task_, qov::RunningHandlers::Clock::now()});
  EXPECT_TRUE(hasTimer());
  watch_.reset();
  EXPECT_FALSE(hasTimer());
}
