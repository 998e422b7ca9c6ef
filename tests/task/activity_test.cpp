// What QOVActivity tells of modules.
#include <gtest/gtest.h>
#include <qovpub/qov_activity.h>
#include <qovpub/qov_request.h>
#include <unistd.h>

#include <chrono>
#include <memory>
#include <optional>
#include <thread>

#include "task/activity_switch.h"
#include "task/handler_times.h"
#include "tests/support/child.h"
#include "tests/support/process_end.h"
#include "tests/task/stats_of.h"
#include "tests/task/task_fixture.h"

namespace {

using std::chrono::hours;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

constexpr std::uint64_t kOpc = 5;

/// A module whose handlers wait at a gate.
class GatedModule : public TestModule {
 public:
  explicit GatedModule(unsigned int pool = 2)
      : TestModule([this](CQOV_Task&, CQOV_MsgPackage&) { return pass(); }, pool), task_(this) {}
  ~GatedModule() override {
    open();
    stop();
  }

  void tell(std::uint64_t opc = kOpc) {
    ASSERT_EQ(QOVReason::kNone, QOVRequest(task_, kModule, opc).tell());
  }
  /// Returns when that many handlers have begun.
  void waitForHandlers(int count) { ASSERT_TRUE(began_.waitFor(count)); }
  void open() { gate_.count(); }

 private:
  int pass() {
    thread_ = ::gettid();
    began_.count();
    EXPECT_TRUE(gate_.waitFor());
    return 0;
  }

 public:
  std::atomic<int> thread_{0};

 private:
  Latch began_;
  Latch gate_;
  CQOV_Task task_;
};

class ActivityTest : public TaskTest {
 protected:
  /// Those that have ended; their count is behind what they have done.
  bool countReaches(std::uint64_t count) {
    return qov::test::waitUntil([&] {
      std::uint64_t all = 0;
      for (const QOVHandlerTimes& times : activity_->times()) {
        all += times.count_;
      }
      return all >= count;
    });
  }

  void isSwitchedOnWithNothingNoted() {
    activity_.emplace();
    EXPECT_TRUE(activity_->handlers().empty());
    EXPECT_TRUE(activity_->requests().empty());
  }

  std::optional<QOVActivity> activity_{std::in_place};
};

}  // namespace

TEST_F(ActivityTest, TellsOfAHandlerWhileItRuns) {
  GatedModule module;
  ASSERT_TRUE(module.init());
  EXPECT_TRUE(activity_->handlers().empty());
  module.tell();
  module.waitForHandlers(1);
  const std::vector<QOVRunningHandler> handlers = activity_->handlers();
  ASSERT_EQ(1U, handlers.size());
  EXPECT_EQ(kModule, handlers[0].moduleId_);
  EXPECT_EQ(module.thread_, handlers[0].thread_);
  EXPECT_EQ(kOpc, handlers[0].opc_);
  EXPECT_EQ(kPid, handlers[0].senderProcess_);
  EXPECT_EQ(kModule, handlers[0].sender_);
  EXPECT_FALSE(handlers[0].continuation_);
  EXPECT_GT(handlers[0].running_.count(), 0);
  module.open();
  EXPECT_TRUE(qov::test::waitUntil([&] { return activity_->handlers().empty(); }));
}

TEST_F(ActivityTest, TellsOfTheHandlersOfAModuleTheLongestFirst) {
  GatedModule module(3);
  ASSERT_TRUE(module.init());
  for (int i = 0; i < 3; ++i) {
    module.tell(static_cast<std::uint64_t>(i));
    module.waitForHandlers(i + 1);
  }
  const std::vector<QOVRunningHandler> handlers = activity_->handlers();
  ASSERT_EQ(3U, handlers.size());
  EXPECT_EQ(0U, handlers[0].opc_);
  EXPECT_EQ(2U, handlers[2].opc_);
}

TEST_F(ActivityTest, NotesNothingWhileNobodyWantsToKnow) {
  activity_.reset();
  GatedModule module;
  ASSERT_TRUE(module.init());
  module.tell();
  module.waitForHandlers(1);
  activity_.emplace();
  EXPECT_TRUE(activity_->handlers().empty());
  module.tell();
  module.waitForHandlers(2);
  EXPECT_EQ(1U, activity_->handlers().size());
  module.open();
  EXPECT_TRUE(countReaches(1));
  EXPECT_TRUE(qov::test::waitUntil([&] { return activity_->handlers().empty(); }));
  ASSERT_EQ(1U, activity_->times().size());
  EXPECT_EQ(1U, activity_->times()[0].count_);
}

TEST_F(ActivityTest, ASecondOneKeepsItOn) {
  std::optional<QOVActivity> second(std::in_place);
  activity_.reset();
  GatedModule module;
  ASSERT_TRUE(module.init());
  module.tell();
  module.waitForHandlers(1);
  EXPECT_EQ(1U, second->handlers().size());
}

TEST_F(ActivityTest, WhatBeganBeforeItIsSwitchedOffEndsInOrder) {
  GatedModule module;
  ASSERT_TRUE(module.init());
  std::thread asking([&] {
    CQOV_Task task(&module);
    EXPECT_FALSE(QOVRequest(task, kModule, kOpc).ask(seconds(60)));
  });
  module.waitForHandlers(1);
  activity_.reset();
  module.tell();
  module.waitForHandlers(2);
  activity_.emplace();
  EXPECT_EQ(1U, activity_->handlers().size());
  EXPECT_EQ(1U, activity_->requests().size());
  activity_.reset();
  module.open();
  module.stop();
  asking.join();
  isSwitchedOnWithNothingNoted();
}

TEST_F(ActivityTest, CountsTheTimeOfAHandlerThatBeganBeforeItIsSwitchedOff) {
  GatedModule module;
  ASSERT_TRUE(module.init());
  module.tell();
  module.waitForHandlers(1);
  activity_.reset();
  module.open();
  activity_.emplace();
  EXPECT_TRUE(countReaches(1));
}

TEST_F(ActivityTest, ARequestThatWaitsWhenItIsSwitchedOnIsNotNoted) {
  activity_.reset();
  GatedModule module;
  ASSERT_TRUE(module.init());
  CQOV_Task task(&module);
  Latch answered;
  ASSERT_EQ(QOVReason::kNone, QOVRequest(task, kModule, kOpc).askLater(seconds(60), [&](QOVAnswer) {
    answered.count();
  }));
  std::thread asking([&] {
    CQOV_Task other(&module);
    EXPECT_FALSE(QOVRequest(other, kModule, kOpc).ask(seconds(60)));
  });
  module.waitForHandlers(2);
  activity_.emplace();
  EXPECT_TRUE(activity_->requests().empty());
  module.open();
  module.stop();
  asking.join();
  EXPECT_TRUE(answered.waitFor());
  EXPECT_TRUE(activity_->requests().empty());
}

TEST_F(ActivityTest, CanBeSwitchedWhileHandlersRunAndRequestsWait) {
  constexpr int kRequests = 200;
  activity_.reset();
  TestModule module([](CQOV_Task& task, CQOV_MsgPackage& message) { return answer(task, message); },
                    3);
  ASSERT_TRUE(module.init());
  std::atomic<bool> enough{false};
  std::thread switching([&] {
    while (!enough) {
      const QOVActivity on;
      EXPECT_LE(on.handlers().size(), 3U);
      EXPECT_LE(on.requests().size(), 2U);
      on.times();
    }
  });
  std::thread asking([&] {
    CQOV_Task task(&module);
    for (int i = 0; i < kRequests; ++i) {
      EXPECT_TRUE(QOVRequest(task, kModule, kOpc).ask(seconds(60)));
    }
  });
  CQOV_Task task(&module);
  for (int i = 0; i < kRequests; ++i) {
    Latch answered;
    ASSERT_EQ(QOVReason::kNone,
              QOVRequest(task, kModule, kOpc).askLater(seconds(60), [&](QOVAnswer) {
                answered.count();
              }));
    ASSERT_TRUE(answered.waitFor());
  }
  asking.join();
  enough = true;
  switching.join();
  module.stop();
  isSwitchedOnWithNothingNoted();
}

TEST_F(ActivityTest, AModuleMayEndWhileItIsListed) {
  constexpr int kModules = 20;
  constexpr int kRequests = 8;
  std::atomic<bool> enough{false};
  std::thread listing([&] {
    while (!enough) {
      for (const QOVRunningHandler& handler : activity_->handlers()) {
        EXPECT_EQ(kModule, handler.moduleId_);
      }
      for (const QOVWaitingRequest& request : activity_->requests()) {
        EXPECT_EQ(kModule, request.moduleId_);
      }
      activity_->times();
    }
  });
  for (int i = 0; i < kModules; ++i) {
    TestModule module(
        [](CQOV_Task& task, CQOV_MsgPackage& message) { return answer(task, message); });
    ASSERT_TRUE(module.init());
    CQOV_Task task(&module);
    for (int asked = 0; asked < kRequests; ++asked) {
      EXPECT_EQ(QOVReason::kNone,
                QOVRequest(task, kModule, kOpc).askLater(seconds(60), [](QOVAnswer) {}));
    }
    // In the middle of them.
    module.stop();
  }
  enough = true;
  listing.join();
}

TEST_F(ActivityTest, TellsOfAHandlerInWhichAModuleHangsWhileItStops) {
  GatedModule module;
  ASSERT_TRUE(module.init());
  module.tell();
  module.waitForHandlers(1);
  std::thread stopping([&] { module.stop(); });
  EXPECT_TRUE(qov::test::waitUntil([] { return statsOf(kModule).stopping_; }));
  EXPECT_EQ(1U, activity_->handlers().size());
  module.open();
  stopping.join();
  EXPECT_TRUE(activity_->handlers().empty());
}

TEST(ThreadHere, IsTheNumberOfTheOnlyThreadOfAForkedChild) {
  EXPECT_EQ(::gettid(), qov::threadHere());
  EXPECT_TRUE(qov::test::holdsInChild([] { return qov::threadHere() == ::gettid(); }));
}

TEST_F(ActivityTest, TellsOfARequestWhileItsSenderWaits) {
  GatedModule module;
  ASSERT_TRUE(module.init());
  std::atomic<int> thread{0};
  std::thread asking([&] {
    thread = ::gettid();
    CQOV_Task task(&module);
    EXPECT_FALSE(QOVRequest(task, kModule, kOpc).ask(seconds(60)));
  });
  module.waitForHandlers(1);
  const std::vector<QOVWaitingRequest> requests = activity_->requests();
  EXPECT_EQ(1U, requests.size());
  EXPECT_EQ(kModule, requests[0].moduleId_);
  EXPECT_EQ(thread, requests[0].thread_);
  EXPECT_EQ(kOpc, requests[0].opc_);
  EXPECT_EQ(kPid, requests[0].receiverProcess_);
  EXPECT_EQ(kModule, requests[0].receiver_);
  EXPECT_GT(requests[0].waiting_.count(), 0);
  EXPECT_EQ(seconds(60), requests[0].timeout_);
  EXPECT_EQ(requests[0].sn_, activity_->handlers()[0].sn_);
  // Nobody answers; the stop ends the wait.
  module.open();
  module.stop();
  asking.join();
  EXPECT_TRUE(activity_->requests().empty());
}

TEST_F(ActivityTest, ARequestWithoutALimitHasNoTimeOut) {
  GatedModule module;
  ASSERT_TRUE(module.init());
  std::thread asking([&] {
    CQOV_Task task(&module);
    EXPECT_FALSE(QOVRequest(task, kModule, kOpc).ask());
  });
  module.waitForHandlers(1);
  EXPECT_EQ(1U, activity_->requests().size());
  EXPECT_EQ(0, activity_->requests()[0].timeout_.count());
  module.open();
  module.stop();
  asking.join();
}

TEST_F(ActivityTest, TellsOfWhatIsAskedForLaterUntilItsAnswerIsThere) {
  GatedModule module;
  ASSERT_TRUE(module.init());
  CQOV_Task task(&module);
  Latch answered;
  ASSERT_EQ(QOVReason::kNone, QOVRequest(task, kModule, kOpc).askLater(seconds(60), [&](QOVAnswer) {
    answered.count();
  }));
  module.waitForHandlers(1);
  const std::vector<QOVWaitingRequest> requests = activity_->requests();
  ASSERT_EQ(1U, requests.size());
  EXPECT_EQ(0, requests[0].thread_);
  EXPECT_EQ(kOpc, requests[0].opc_);
  EXPECT_EQ(seconds(60), requests[0].timeout_);
  module.open();
  module.stop();
  EXPECT_TRUE(answered.waitFor());
  EXPECT_TRUE(activity_->requests().empty());
}

TEST_F(ActivityTest, KeepsTimesByOperationCode) {
  TestModule module(ignore);
  ASSERT_TRUE(module.init());
  CQOV_Task task(&module);
  std::uint64_t told = 0;
  for (const std::uint64_t opc : {1U, 2U, 1U, 1U}) {
    ASSERT_EQ(QOVReason::kNone, QOVRequest(task, kModule, opc).tell());
    ASSERT_TRUE(countReaches(++told));
  }
  const std::vector<QOVHandlerTimes> times = activity_->times();
  ASSERT_EQ(2U, times.size());
  EXPECT_EQ(kModule, times[0].moduleId_);
  EXPECT_EQ(1U, times[0].opc_);
  EXPECT_EQ(3U, times[0].count_);
  EXPECT_FALSE(times[0].continuation_);
  EXPECT_FALSE(times[0].others_);
  EXPECT_EQ(2U, times[1].opc_);
  EXPECT_EQ(1U, times[1].count_);
  EXPECT_GT(times[0].longest_.count(), 0);
  EXPECT_LE(times[0].longest_, times[0].sum_);
  EXPECT_LE(times[0].median_, times[0].percentile99_);
  EXPECT_LE(times[0].percentile99_, times[0].longest_);
}

TEST_F(ActivityTest, KeepsTheTimesOfContinuationsApart) {
  TestModule module(
      [](CQOV_Task& task, CQOV_MsgPackage& message) { return answer(task, message); });
  ASSERT_TRUE(module.init());
  CQOV_Task task(&module);
  ASSERT_EQ(QOVReason::kNone,
            QOVRequest(task, kModule, kOpc).askLater(seconds(60), [](QOVAnswer) {}));
  ASSERT_TRUE(countReaches(2));
  const std::vector<QOVHandlerTimes> times = activity_->times();
  ASSERT_EQ(2U, times.size());
  EXPECT_EQ(kOpc, times[0].opc_);
  EXPECT_EQ(kOpc, times[1].opc_);
  EXPECT_NE(times[0].continuation_, times[1].continuation_);
}

namespace {

class HandlerTimesTest : public ::testing::Test {
 protected:
  std::vector<QOVHandlerTimes> list() {
    std::vector<QOVHandlerTimes> all;
    times_.list(kModule, all);
    return all;
  }

  qov::HandlerTimes times_;
};

std::uint64_t count(nanoseconds span) {
  return static_cast<std::uint64_t>(span.count());
}

}  // namespace

TEST_F(HandlerTimesTest, AreUpToAnEighthTooHigh) {
  for (nanoseconds span{1}; span < hours(2); span += span / 5 + nanoseconds(97)) {
    qov::TimeHistogram histogram;
    histogram.add(count(span));
    EXPECT_GT(histogram.quantile(0.5), count(span));
    EXPECT_LE(histogram.quantile(0.5), count(span) + std::max<std::uint64_t>(count(span) / 8, 128));
  }
}

TEST_F(HandlerTimesTest, TellHalfOfThemAndNinetyNineOfAHundred) {
  for (int i = 1; i <= 1000; ++i) {
    times_.add(kOpc, false, count(milliseconds(i)));
  }
  ASSERT_EQ(1U, list().size());
  const QOVHandlerTimes times = list()[0];
  EXPECT_EQ(1000U, times.count_);
  EXPECT_EQ(milliseconds(500500), times.sum_);
  EXPECT_EQ(milliseconds(1000), times.longest_);
  EXPECT_GE(times.median_, milliseconds(500));
  EXPECT_LE(times.median_, milliseconds(563));
  EXPECT_GE(times.percentile99_, milliseconds(990));
  EXPECT_LE(times.percentile99_, milliseconds(1000));
}

TEST_F(HandlerTimesTest, OfMoreThanTheMostCodesCountAsThoseOfOthers) {
  for (std::uint64_t opc = 0; opc < QOVActivity::kMostCodes; ++opc) {
    times_.add(opc, false, 1000);
  }
  EXPECT_EQ(QOVActivity::kMostCodes, list().size());
  EXPECT_FALSE(list().back().others_);
  times_.add(QOVActivity::kMostCodes, false, 2000);
  times_.add(0, true, 3000);
  times_.add(0, false, 1000);
  ASSERT_EQ(QOVActivity::kMostCodes + 1, list().size());
  EXPECT_TRUE(list().back().others_);
  EXPECT_EQ(2U, list().back().count_);
  EXPECT_EQ(2U, list().front().count_);
}

TEST_F(HandlerTimesTest, HaveAnEndForTheLongest) {
  times_.add(kOpc, false, count(hours(1000)));
  EXPECT_EQ(hours(1000), list()[0].longest_);
  EXPECT_GE(list()[0].median_, hours(2));
}
