#include <gtest/gtest.h>
#include <qovpub/qov_stats.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <limits>
#include <memory>
#include <numeric>
#include <thread>
#include <vector>

#include "task/module_counters.h"
#include "tests/support/answering_modules.h"
#include "tests/task/stats_of.h"
#include "tests/task/task_fixture.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;

constexpr std::uint8_t kBeside = kModule + 1;

/// Waits for a figure.
template <class IsReached>
QOVModuleStats statsOnce(unsigned int module, IsReached isReached) {
  QOVModuleStats stats = statsOf(module);
  while (!isReached(stats)) {
    std::this_thread::yield();
    stats = statsOf(module);
  }
  return stats;
}

/// A module whose workers stay in their handler until they are told.
class StatsTest : public TaskTest {
 protected:
  StatsTest()
      : module_(std::make_unique<TestModule>([this](CQOV_Task& task, CQOV_MsgPackage& message) {
          begun_.count();
          EXPECT_TRUE(goOn_.waitFor());
          return message.head().type_ == 1 ? answer(task, message) : 0;
        })) {}
  ~StatsTest() override {
    goOn_.count();
    module_.reset();
  }

  void SetUp() override { ASSERT_TRUE(module_->init()); }

  void send(std::unique_ptr<CQOV_MsgPackage> message) {
    ASSERT_LT(0, module_->putq(makeBlock(std::move(message)), nullptr));
  }

  /// The reason for which one message has been dropped, once one has.
  QOVDropReason reasonOfOneDrop(unsigned int module = kModule) {
    const auto all = [](const QOVModuleStats& stats) {
      return std::accumulate(stats.dropped_.begin(), stats.dropped_.end(), std::uint64_t{0});
    };
    const QOVModuleStats stats =
        statsOnce(module, [&](const QOVModuleStats& now) { return all(now) > 0; });
    EXPECT_EQ(1U, all(stats));
    return static_cast<QOVDropReason>(std::find(stats.dropped_.begin(), stats.dropped_.end(), 1U) -
                                      stats.dropped_.begin());
  }

  Latch begun_;
  Latch goOn_;
  std::unique_ptr<TestModule> module_;
};

}  // namespace

TEST_F(StatsTest, ListsTheModulesThatRunInTheOrderOfTheirIds) {
  TestModule higher(ignore, 1, kModule + 2, "higher");
  TestModule lower(ignore, 1, kModule - 2, "lower");
  TestModule idle(ignore, 1, kModule + 1, "never started");
  ASSERT_TRUE(higher.init());
  ASSERT_TRUE(lower.init());
  std::vector<QOVModuleStats> all = getModuleStats();
  ASSERT_EQ(3U, all.size());
  EXPECT_EQ("lower", all[0].name_);
  EXPECT_EQ(kModule - 2U, all[0].moduleId_);
  EXPECT_EQ("test", all[1].name_);
  EXPECT_EQ("higher", all[2].name_);
  lower.stop();
  all = getModuleStats();
  ASSERT_EQ(2U, all.size());
  EXPECT_EQ("test", all[0].name_);
}

TEST_F(StatsTest, ListsAModuleThatHangsInItsStopUntilThatReturns) {
  EXPECT_FALSE(statsOf(kModule).stopping_);
  send(makeMessage(3, 1));
  ASSERT_TRUE(begun_.waitFor());
  std::thread stopping([&] { module_->stop(); });
  statsOnce(kModule, [](const QOVModuleStats& stats) { return stats.stopping_; });
  goOn_.count();
  stopping.join();
  EXPECT_TRUE(getModuleStats().empty());
}

TEST_F(StatsTest, CountsWorkersAndThoseThatHaveAMessage) {
  statsOnce(kModule,
            [](const QOVModuleStats& stats) { return stats.workers_ == 2 && stats.busy_ == 0; });
  send(makeMessage(3, 1));
  ASSERT_TRUE(begun_.waitFor());
  const QOVModuleStats stats =
      statsOnce(kModule, [](const QOVModuleStats& now) { return now.in_ == 1; });
  EXPECT_EQ(2U, stats.workers_);
  EXPECT_EQ(1U, stats.busy_);
  EXPECT_EQ(0U, stats.handled_);
  goOn_.count();
  statsOnce(kModule, [](const QOVModuleStats& now) { return now.busy_ == 0 && now.handled_ == 1; });
}

TEST_F(StatsTest, CountsTheMessagesThatWaitAndTheirBytesAndTheMostOfThem) {
  constexpr int kMessages = 12;
  // Two are in the workers' hands, and one is out of the queue and waits for them.
  constexpr std::uint64_t kWaiting = kMessages - 2;
  constexpr std::uint64_t kInQueues = kWaiting - 1;
  for (int i = 0; i < kMessages; ++i) {
    send(makeMessage(3, 1));
  }
  ASSERT_TRUE(begun_.waitFor(2));
  QOVModuleStats stats = statsOnce(kModule, [](const QOVModuleStats& now) {
    return now.in_ == kMessages && now.waiting_ == kWaiting && now.waitingBytes_ == 8 * kInQueues;
  });
  EXPECT_LE(kInQueues, stats.highestWaiting_);
  EXPECT_LE(8 * kInQueues, stats.highestWaitingBytes_);
  goOn_.count();
  stats = statsOnce(kModule, [](const QOVModuleStats& now) { return now.handled_ == kMessages; });
  EXPECT_EQ(0U, stats.waiting_);
  EXPECT_EQ(0U, stats.waitingBytes_);
  EXPECT_LE(kInQueues, stats.highestWaiting_);
  EXPECT_GT(2U * kMessages, stats.highestWaiting_);
}

TEST_F(StatsTest, CountsWhatIsRefusedForWantOfRoom) {
  const ACE_Time_Value past(1);
  ACE_Time_Value limit = past;
  std::uint64_t refused = 0;
  for (std::size_t i = 0; i < QOVModuleStats::kRoomBytes / 8 + 100; ++i) {
    ACE_Message_Block* const block = makeBlock(makeMessage(3, 1));
    limit = past;
    if (module_->putq(block, &limit) == -1) {
      ++refused;
      qov::releaseWithPackage(block);
    }
  }
  EXPECT_LT(0U, refused);
  EXPECT_EQ(refused, statsOf(kModule).refused_);
  EXPECT_LE(QOVModuleStats::kRoomBytes, statsOf(kModule).highestWaitingBytes_);
  EXPECT_LE(QOVModuleStats::kRoomBytes / 8, statsOf(kModule).highestWaiting_);
}

TEST_F(StatsTest, TellsThePendingRequestsAndTheAgeOfTheOldest) {
  EXPECT_EQ(nanoseconds(0), statsOf(kModule).oldestPending_);
  std::vector<std::thread> requesters;
  std::vector<std::unique_ptr<CQOV_Task>> tasks;
  const auto ask = [&] {
    CQOV_Task& task = *tasks.emplace_back(std::make_unique<CQOV_Task>(module_.get()));
    requesters.emplace_back([&task] { EXPECT_EQ(0, request(task, makeMessage(1, 1), kLong)); });
  };
  const auto begin = qov::ModuleCounters::coarseNow();
  ask();
  statsOnce(kModule, [](const QOVModuleStats& now) { return now.pending_ == 1; });
  ask();
  const nanoseconds age = statsOnce(kModule, [](const QOVModuleStats& now) {
                            return now.pending_ == 2;
                          }).oldestPending_;
  EXPECT_LT(nanoseconds(0), age);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, age);
  EXPECT_LT(age, statsOf(kModule).oldestPending_);
  goOn_.count();
  for (std::thread& requester : requesters) {
    requester.join();
  }
  const QOVModuleStats stats = statsOf(kModule);
  EXPECT_EQ(0U, stats.pending_);
  EXPECT_EQ(nanoseconds(0), stats.oldestPending_);
  // Two requests, and their responses.
  EXPECT_EQ(4U, stats.in_);
  EXPECT_EQ(0U, stats.timedOut_);
}

TEST_F(StatsTest, CountsTimeOutsAndTheResponsesThatComeAfterThem) {
  CQOV_Task task(module_.get());
  EXPECT_EQ(-1, request(task, makeMessage(1, 1), kShort));
  EXPECT_EQ(1U, statsOf(kModule).timedOut_);
  EXPECT_EQ(0U, statsOf(kModule).pending_);
  goOn_.count();
  EXPECT_EQ(QOVDropReason::kNobodyWaits, reasonOfOneDrop());
}

TEST_F(StatsTest, CountsHandlingTimesInPowersOfTwo) {
  goOn_.count();
  constexpr int kMessages = 20;
  for (int i = 0; i < kMessages; ++i) {
    send(makeMessage(3, 1));
  }
  const QOVModuleStats stats =
      statsOnce(kModule, [](const QOVModuleStats& now) { return now.handled_ == kMessages; });
  const auto longest = std::find_if(stats.handlingTimes_.rbegin(), stats.handlingTimes_.rend(),
                                    [](std::uint64_t count) { return count > 0; });
  const auto width = static_cast<unsigned>(stats.handlingTimes_.rend() - longest - 1);
  EXPECT_GT(nanoseconds(1LL << width), stats.longestHandling_);
  EXPECT_LE(nanoseconds(1LL << (width - 1)), stats.longestHandling_);
  EXPECT_LE(stats.longestHandling_, stats.handlingSum_);
  EXPECT_GE(kMessages * stats.longestHandling_, stats.handlingSum_);
}

TEST_F(StatsTest, CountsWhatAStaticTaskHandles) {
  goOn_.count();
  FunctionStaticTask task(module_.get(), {99}, ignore);
  ASSERT_EQ(0, module_->insertStaticScheduledTask(&task));
  send(makeMessage(3, 99));
  const QOVModuleStats stats =
      statsOnce(kModule, [](const QOVModuleStats& now) { return now.handled_ == 1; });
  EXPECT_EQ(1U, stats.in_);
  module_->stop();
}

TEST_F(StatsTest, CountsAMessageForAModuleThatIsNotThere) {
  send(makeMessage(3, 1, kBeside));
  EXPECT_EQ(QOVDropReason::kNoReceiver, reasonOfOneDrop());
}

TEST_F(StatsTest, CountsAMessageOfAnUnknownType) {
  send(makeMessage(9, 1));
  EXPECT_EQ(QOVDropReason::kInvalid, reasonOfOneDrop());
}

TEST_F(StatsTest, CountsABlockThatIsNoMessage) {
  ASSERT_LT(0, module_->putq(qov::makePointerBlock(nullptr), nullptr));
  EXPECT_EQ(QOVDropReason::kInvalid, reasonOfOneDrop());
}

TEST_F(StatsTest, CountsAMessageToAnotherProcess) {
  CQOV_Task task(module_.get());
  const RequestElsewhere elsewhere(*module_, task, kNoLimit);
  EXPECT_EQ(QOVDropReason::kOtherProcess, reasonOfOneDrop());
  // Which wakes the task.
  module_->stop();
}

TEST_F(StatsTest, CountsAMessageForATaskThatHasEnded) {
  FunctionStaticTask task(module_.get(), {99}, ignore);
  ASSERT_EQ(0, module_->insertStaticScheduledTask(&task));
  task.notifyExit();
  task.wait();
  send(makeMessage(3, 99));
  EXPECT_EQ(QOVDropReason::kStopped, reasonOfOneDrop());
  EXPECT_EQ(0U, statsOf(kModule).in_);
  // Its leader may still look at the task.
  module_->stop();
}

TEST_F(StatsTest, CountsWhatGoesToAnotherModuleAndComesFromThere) {
  const AnsweringModules modules(agentRoot());
  CQOV_Task task(modules.first());
  constexpr int kRequests = 5;
  for (int i = 0; i < kRequests; ++i) {
    ASSERT_EQ(0,
              request(task, makeMessage(1, 1, AnsweringModules::kSecond, AnsweringModules::kFirst),
                      kLong));
  }
  const QOVModuleStats first = statsOf(AnsweringModules::kFirst);
  EXPECT_EQ(kRequests, static_cast<int>(first.out_));
  EXPECT_EQ(kRequests, static_cast<int>(first.in_));
  EXPECT_EQ(0U, first.handled_);
  const QOVModuleStats second = statsOnce(AnsweringModules::kSecond, [](const QOVModuleStats& now) {
    return now.handled_ == kRequests;
  });
  EXPECT_EQ(kRequests, static_cast<int>(second.out_));
  EXPECT_EQ(kRequests, static_cast<int>(second.in_));
}

TEST_F(StatsTest, CanBeReadWhileModulesComeAndGo) {
  std::atomic<bool> enough{false};
  std::thread reader([&] {
    while (!enough) {
      for (const QOVModuleStats& stats : getModuleStats()) {
        EXPECT_LE(stats.busy_, stats.workers_);
      }
    }
  });
  for (int i = 0; i < 20; ++i) {
    TestModule module(ignore, 2, kBeside);
    ASSERT_TRUE(module.init());
    ASSERT_LT(0, module.putq(makeBlock(makeMessage(3, 1, kBeside)), nullptr));
  }
  enough = true;
  reader.join();
}

TEST(ModuleCounters, KeepTheGreaterNumber) {
  qov::Counter counter;
  counter.raiseTo(5);
  counter.raiseTo(3);
  EXPECT_EQ(5U, counter.read());
}

TEST(ModuleCounters, PutEachTimeIntoItsPowerOfTwo) {
  qov::ModuleCounters counters(kModule);
  counters.handled(qov::ModuleCounters::Clock::now() - milliseconds(100));
  const QOVModuleStats stats = counters.read();
  // 2^26 ns are 67 ms.
  const auto from27 = std::accumulate(stats.handlingTimes_.begin() + 27, stats.handlingTimes_.end(),
                                      std::uint64_t{0});
  EXPECT_EQ(1U, from27);
  EXPECT_EQ(1U, stats.handled_);
  EXPECT_LE(milliseconds(100), stats.longestHandling_);
}
