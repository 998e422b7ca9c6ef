#include <ace/Log_Msg.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <qovpub/qov_stats.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <random>
#include <thread>
#include <vector>

#include "tests/support/answering_modules.h"
#include "tests/support/latch.h"
#include "tests/support/sanitizers.h"
#include "tests/task/acting_task.h"
#include "tests/task/stats_of.h"
#include "tests/task/task_fixture.h"

namespace {

constexpr std::uint64_t kNoted = 77;
constexpr std::uint64_t kActing = 78;

/// Notes which thread puts messages into its queue, and answers them.
class NotingTask : public FunctionStaticTask {
 public:
  explicit NotingTask(CQOV_TaskMgr* mgr)
      : FunctionStaticTask(mgr, {kNoted}, [this](CQOV_Task& task, CQOV_MsgPackage& message) {
          handled_.count();
          return message.head().type_ == 1 ? answer(task, message) : 0;
        }) {}

  int putMsg(int type, ACE_Message_Block* mb, ACE_Time_Value* timeout) override {
    putBy_ = std::this_thread::get_id();
    return FunctionStaticTask::putMsg(type, mb, timeout);
  }

  std::thread::id putBy() const { return putBy_; }
  Latch& handled() { return handled_; }

 private:
  std::atomic<std::thread::id> putBy_{};
  Latch handled_;
};

class LeadingSendersTest : public TaskTest {
 protected:
  LeadingSendersTest() : module_(std::make_unique<TestModule>(ignore)), task_(module_.get()) {}
  ~LeadingSendersTest() override { module_.reset(); }

  void SetUp() override {
    ASSERT_TRUE(module_->init());
    ASSERT_EQ(0, module_->insertStaticScheduledTask(&task_));
  }

  /// Whether the message of a request is put into the receiver's queue on the requester's thread.
  bool isPutByTheSender() {
    CQOV_Task requester(module_.get());
    EXPECT_EQ(0, request(requester, makeMessage(1, kNoted), kLong));
    return task_.putBy() == std::this_thread::get_id();
  }

  std::unique_ptr<TestModule> module_;
  NotingTask task_;
};

}  // namespace

TEST_F(LeadingSendersTest, ARequesterPassesItsRequestOnItself) {
  // Unless the leader's own thread is at it, as right after the start.
  constexpr int kTries = 1000;
  int tries = 0;
  while (!isPutByTheSender() && tries < kTries) {
    ++tries;
  }
  EXPECT_LT(tries, kTries);
}

TEST_F(LeadingSendersTest, WithDebugRecordsTheLeaderDoesIt) {
  const u_long before = ACE_Log_Msg::instance()->priority_mask(ACE_Log_Msg::PROCESS);
  ACE_Log_Msg::instance()->priority_mask(before | LM_DEBUG, ACE_Log_Msg::PROCESS);
  for (int i = 0; i < 50; ++i) {
    EXPECT_FALSE(isPutByTheSender());
  }
  ACE_Log_Msg::instance()->priority_mask(before, ACE_Log_Msg::PROCESS);
}

TEST_F(LeadingSendersTest, AMessageThatNobodyWaitsForIsLeftToTheLeaderOutsideOfThePool) {
  CQOV_Task sender(module_.get());
  for (int i = 1; i <= 50; ++i) {
    ASSERT_EQ(0, sender.send(makeMessage(3, kNoted).release(), nullptr, true));
    ASSERT_TRUE(task_.handled().waitFor(i));
    EXPECT_NE(std::this_thread::get_id(), task_.putBy());
  }
}

TEST_F(LeadingSendersTest, ARequestTimesOutAlthoughTheLeaderHasSeenNothingOfIt) {
  TestModule silent(ignore, 1, kModule + 1);
  ASSERT_TRUE(silent.init());
  CQOV_Task requester(&silent);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(-1, request(requester, makeMessage(1, 1, kModule + 1, kModule + 1), kShort));
    EXPECT_EQ(ETIMEDOUT, errno);
  }
}

TEST_F(LeadingSendersTest, WhatIsSentInAnothersTurnArrivesHoweverMuchItIs) {
  constexpr int kMany = 200;
  Latch handled;
  const AnsweringModules modules(agentRoot());
  ActingTask acting(module_.get(), kActing, [&] {
    for (int i = 0; i < kMany; ++i) {
      ASSERT_LT(0, modules.first()->putq(makeBlock(makeMessage(3, 1, AnsweringModules::kFirst)),
                                         nullptr));
    }
  });
  ASSERT_EQ(0, module_->insertStaticScheduledTask(&acting));
  const std::uint64_t before = statsOf(AnsweringModules::kFirst).in_;
  CQOV_Task requester(module_.get());
  for (int i = 1; i <= 5; ++i) {
    ASSERT_EQ(0, request(requester, makeMessage(1, kActing), kLong));
    while (statsOf(AnsweringModules::kFirst).in_ < before + static_cast<std::uint64_t>(i) * kMany) {
      std::this_thread::yield();
    }
  }
  module_->stop();
}

TEST_F(LeadingSendersTest, ARequestInAnothersTurnIsAnsweredOrTimesOut) {
  const AnsweringModules modules(agentRoot());
  CQOV_Task inner(modules.first());
  std::atomic<int> answered{0};
  ActingTask acting(module_.get(), kActing, [&] {
    if (request(inner, makeMessage(1, 1, AnsweringModules::kSecond, AnsweringModules::kFirst),
                kLong) == 0) {
      ++answered;
    }
  });
  ASSERT_EQ(0, module_->insertStaticScheduledTask(&acting));
  CQOV_Task requester(module_.get());
  for (int i = 1; i <= 20; ++i) {
    ASSERT_EQ(0, request(requester, makeMessage(1, kActing), kLong));
    EXPECT_EQ(i, answered);
  }
  module_->stop();
}

TEST_F(LeadingSendersTest, EveryRequestEndsWhereverAStopComes) {
  // More by hand: QOV_STRESS_REQUESTS=10000000.
  const char* const wanted = std::getenv("QOV_STRESS_REQUESTS");
  const long all = wanted != nullptr ? std::atol(wanted) : 4000;
  std::mt19937 random(20261122);
  long sent = 0;
  while (sent < all) {
    std::atomic<long> answered{0};
    std::atomic<long> handled{0};
    std::atomic<long> given{0};
    const long until = static_cast<long>(random() % 2000);
    TestModule module(
        [&](CQOV_Task& task, CQOV_MsgPackage& message) {
          ++handled;
          return answer(task, message);
        },
        3, kModule + 1);
    ASSERT_TRUE(module.init());
    std::vector<std::unique_ptr<CQOV_Task>> tasks;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      CQOV_Task& task = *tasks.emplace_back(std::make_unique<CQOV_Task>(&module));
      threads.emplace_back([&] {
        while (request(task, makeMessage(1, 1, kModule + 1, kModule + 1), kNoLimit) == 0) {
          ++answered;
        }
        EXPECT_EQ(ECONNABORTED, errno);
        ++given;
      });
    }
    while (answered < until) {
      std::this_thread::yield();
    }
    module.stop();
    for (std::thread& thread : threads) {
      thread.join();
    }
    EXPECT_EQ(4, given);
    EXPECT_LE(answered, handled);
    EXPECT_LE(handled, answered + 4);
    sent += answered;
  }
}

TEST_F(LeadingSendersTest, ALeaderThatIsCancelledAtWorkIsStoppedAllTheSame) {
  if (QOV_TEST_ASAN || QOV_TEST_TSAN) {
    GTEST_SKIP() << "no sanitizer follows a thread that is cancelled";
  }
  Latch cancelled;
  ActingTask acting(module_.get(), kActing, [&] {
    ::pthread_cancel(::pthread_self());
    cancelled.count();
    ::pthread_testcancel();
  });
  ASSERT_EQ(0, module_->insertStaticScheduledTask(&acting));
  // Nobody of the pool has sent it, so it is the leader's thread that delivers it.
  ACE_Message_Block* const block = makeBlock(makeMessage(3, kActing));
  ASSERT_LT(0, module_->putq(block, nullptr));
  ASSERT_TRUE(cancelled.waitFor());
  module_->stop();
  // What it had in its hands is gone with it.
  qov::releaseWithPackage(block);
}
