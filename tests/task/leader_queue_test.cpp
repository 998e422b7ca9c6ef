#include "task/leader_queue.h"

#include <ace/OS_NS_sys_time.h>
#include <gtest/gtest.h>

#include <pthread.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/sanitizers.h"
#include "tests/task/task_fixture.h"

namespace {

constexpr std::size_t kLimit = 16384;

class LeaderQueueTest : public TaskTest {
 protected:
  LeaderQueueTest() : queue_(nullptr, kPid, kModule) {}

  /// Refuses at once when there is no room.
  bool take(std::unique_ptr<CQOV_MsgPackage> message) {
    ACE_Time_Value past(1);
    ACE_Message_Block* const block = makeBlock(std::move(message));
    if (queue_.enqueue_tail(block, &past) != -1) {
      return true;
    }
    EXPECT_EQ(EWOULDBLOCK, errno);
    qov::releaseWithPackage(block);
    return false;
  }

  void fillWith(std::uint8_t receiver) {
    while (take(makeMessage(3, 1, receiver))) {
    }
  }

  /// As if `bytes` waited behind the leader.
  void loadModule(std::size_t bytes) { queue_.admission()->book(0, bytes); }
  void makeRoom(std::size_t bytes) { queue_.admission()->book(bytes, 0); }

  /// Takes a batch, which stays in the ledger.
  void releaseBatch() {
    for (ACE_Message_Block* mb = queue_.takeBatch(); mb != nullptr;) {
      ACE_Message_Block* const next = mb->next();
      qov::releaseWithPackage(mb);
      mb = next;
    }
  }

  std::size_t booked() { return queue_.admission()->booked(); }
  int waitingSenders() { return queue_.admission()->waitingSenders(); }

  /// A sender that waits as long as it takes and then says that it was number `number`.
  std::thread startSender(int number, int type = 1, std::uint8_t receiver = kModule) {
    const int before = waitingSenders();
    std::thread sender([this, number, type, receiver] {
      EXPECT_LT(0, queue_.enqueue_tail(makeBlock(makeMessage(type, 1, receiver)), nullptr));
      rusage usage{};
      ::getrusage(RUSAGE_THREAD, &usage);
      const std::lock_guard<std::mutex> lock(mutex_);
      letIn_.push_back(number);
      switches_ += usage.ru_nvcsw;
      gone_.count();
    });
    while (waitingSenders() == before) {
      std::this_thread::yield();
    }
    return sender;
  }

  std::mutex mutex_;
  std::vector<int> letIn_;
  long switches_ = 0;
  Latch gone_;

  qov::LeaderQueue queue_;
};

/// Of one block.
constexpr std::size_t kBlock = 8;

}  // namespace

TEST_F(LeaderQueueTest, RequestsToTheModuleAreRefusedWhileItsWorkersAreBehind) {
  loadModule(kLimit);
  EXPECT_FALSE(take(makeMessage(1, 1)));
  EXPECT_FALSE(take(makeMessage(3, 1)));
  EXPECT_FALSE(take(makeMessage(4, 1)));
}

TEST_F(LeaderQueueTest, RequestsToTheModuleAreTakenJustBelowTheLimit) {
  loadModule(kLimit - 1);
  EXPECT_TRUE(take(makeMessage(1, 1)));
}

TEST_F(LeaderQueueTest, MessagesToOtherModulesPassWhileTheWorkersAreBehind) {
  loadModule(kLimit);
  EXPECT_TRUE(take(makeMessage(1, 1, kModule + 1)));
}

TEST_F(LeaderQueueTest, WhatIsNotForTheWorkersFillsTheQueueToItsLimit) {
  constexpr int kUnknown = 0;
  constexpr int kBeyondAll = 5;
  loadModule(kLimit);
  for (const auto& [type, receiver] :
       {std::pair(1, kModule + 1), std::pair(3, kModule + 1), std::pair(kUnknown, int{kModule}),
        std::pair(kBeyondAll, int{kModule})}) {
    std::size_t taken = 0;
    while (take(makeMessage(type, 1, static_cast<std::uint8_t>(receiver)))) {
      ++taken;
    }
    EXPECT_EQ(kLimit / kBlock, taken) << type;
    releaseBatch();
  }
}

TEST_F(LeaderQueueTest, ResponsesPassWhileTheWorkersAreBehindAndTheQueueIsFull) {
  fillWith(kModule + 1);
  loadModule(kLimit);
  EXPECT_TRUE(take(makeMessage(2, 1)));
}

TEST_F(LeaderQueueTest, ResponsesHaveALimitOfTheirOwn) {
  int taken = 0;
  while (take(makeMessage(2, 1))) {
    ++taken;
  }
  EXPECT_EQ(static_cast<int>(2 * kLimit / 8), taken);
}

TEST_F(LeaderQueueTest, SynchronousRequestsToTheModuleAreRefusedToo) {
  loadModule(kLimit);
  ACE_Time_Value past(1);
  ACE_Message_Block* const block = makeBlock(makeMessage(1, 1));
  const TimeoutDesc desc{nullptr, kNoLimit, -1};
  ASSERT_TRUE(qov::chainTimeoutDesc(*block, &desc));
  EXPECT_EQ(-1, queue_.enqueue_tail(block, &past));
  EXPECT_EQ(EWOULDBLOCK, errno);
  qov::releaseWithPackage(block);
}

TEST_F(LeaderQueueTest, ABatchCountsUntilItIsDoneWith) {
  while (take(makeMessage(3, 1))) {
  }
  releaseBatch();
  EXPECT_FALSE(take(makeMessage(3, 1)));
  queue_.doneWith(kLimit);
  EXPECT_TRUE(take(makeMessage(3, 1)));
}

TEST_F(LeaderQueueTest, ABatchNeverCountsTwice) {
  constexpr std::size_t kMoreThanHalf = kLimit / 2 + 1;
  constexpr int kRounds = 20000;
  std::atomic<bool> over{false};
  std::size_t most = 0;
  std::thread observer([&] {
    while (!over) {
      most = std::max(most, booked());
    }
  });
  auto* const block = new ACE_Message_Block(kMoreThanHalf);
  for (int i = 0; i < kRounds; ++i) {
    EXPECT_EQ(1, queue_.enqueue_tail(block, nullptr));
    EXPECT_EQ(block, queue_.takeBatch());
    queue_.doneWith(kMoreThanHalf);
  }
  over = true;
  observer.join();
  block->release();
  EXPECT_GE(kMoreThanHalf, most);
}

TEST_F(LeaderQueueTest, StopAndHangupPassAFullQueue) {
  fillWith(kModule + 1);
  ACE_Time_Value past(1);
  EXPECT_LT(0, queue_.enqueue_tail(new ACE_Message_Block(0, ACE_Message_Block::MB_STOP), &past));
  EXPECT_LT(0, queue_.enqueue_tail(new ACE_Message_Block(0, ACE_Message_Block::MB_HANGUP), &past));
}

TEST_F(LeaderQueueTest, OneSecondMeansRefuseAtOnce) {
  // The limit is an absolute time of day, and the first second of 1970 is long past.
  loadModule(kLimit);
  ACE_Time_Value oneSecond(1);
  ACE_Message_Block* const block = makeBlock(makeMessage(1, 1));
  EXPECT_EQ(-1, queue_.enqueue_tail(block, &oneSecond));
  qov::releaseWithPackage(block);
}

TEST_F(LeaderQueueTest, ASenderThatWaitsGoesOnWhenTheWorkersCatchUp) {
  loadModule(kLimit);
  std::thread sender(
      [this] { EXPECT_LT(0, queue_.enqueue_tail(makeBlock(makeMessage(1, 1)), nullptr)); });
  makeRoom(kLimit);
  sender.join();
}

TEST_F(LeaderQueueTest, ASenderThatWaitsUntilATimeGivesUpThen) {
  loadModule(kLimit);
  ACE_Time_Value soon = ACE_OS::gettimeofday() + ACE_Time_Value(0, 50000);
  ACE_Message_Block* const block = makeBlock(makeMessage(1, 1));
  EXPECT_EQ(-1, queue_.enqueue_tail(block, &soon));
  EXPECT_EQ(EWOULDBLOCK, errno);
  qov::releaseWithPackage(block);
}

TEST_F(LeaderQueueTest, ASenderThatWaitsForGoodIsLetGoWhenTheQueueCloses) {
  loadModule(kLimit);
  std::thread sender([this] {
    ACE_Time_Value never = ACE_Time_Value::max_time;
    ACE_Message_Block* const block = makeBlock(makeMessage(1, 1));
    EXPECT_EQ(-1, queue_.enqueue_tail(block, &never));
    EXPECT_EQ(ESHUTDOWN, errno);
    qov::releaseWithPackage(block);
  });
  queue_.deactivate();
  sender.join();
}

TEST_F(LeaderQueueTest, SendersThatWaitAreLetInOneByOneInTheirOrder) {
  constexpr int kSenders = 64;
  loadModule(kLimit);
  std::vector<std::thread> senders;
  for (int i = 0; i < kSenders; ++i) {
    senders.push_back(startSender(i));
  }
  for (int i = 1; i <= kSenders; ++i) {
    makeRoom(kBlock);
    ASSERT_TRUE(gone_.waitFor(i));
    EXPECT_EQ(kSenders - i, waitingSenders());
  }
  for (std::thread& sender : senders) {
    sender.join();
  }
  EXPECT_TRUE(std::is_sorted(letIn_.begin(), letIn_.end()));
  // Were all woken for each, they would sleep and wake 32 times each.
  EXPECT_GT(kSenders * 16, switches_);
}

TEST_F(LeaderQueueTest, AsManySendersAreLetInAsThereIsRoomFor) {
  loadModule(kLimit);
  std::vector<std::thread> senders;
  for (int i = 0; i < 5; ++i) {
    senders.push_back(startSender(i));
  }
  makeRoom(3 * kBlock);
  EXPECT_TRUE(gone_.waitFor(3));
  EXPECT_EQ(2, waitingSenders());
  makeRoom(kLimit - 3 * kBlock);
  for (std::thread& sender : senders) {
    sender.join();
  }
}

TEST_F(LeaderQueueTest, ASenderThatMayWaitStandsBehindThoseWhoWait) {
  loadModule(kLimit);
  std::thread first = startSender(1);
  std::thread second = startSender(2);
  makeRoom(kBlock);
  EXPECT_TRUE(gone_.waitFor());
  // The first one's block is taken out: room for one, and the second has waited for longer.
  std::thread third = startSender(3);
  ACE_Message_Block* block = nullptr;
  EXPECT_LE(0, queue_.dequeue_head(block));
  qov::releaseWithPackage(block);
  EXPECT_TRUE(gone_.waitFor(2));
  makeRoom(kBlock);
  EXPECT_TRUE(gone_.waitFor(3));
  for (std::thread* const sender : {&first, &second, &third}) {
    sender->join();
  }
  EXPECT_EQ((std::vector<int>{1, 2, 3}), letIn_);
}

TEST_F(LeaderQueueTest, ASenderThatGivesUpLeavesItsPlaceInTheLine) {
  loadModule(kLimit);
  std::thread impatient([this] {
    ACE_Time_Value soon = ACE_OS::gettimeofday() + ACE_Time_Value(0, 50000);
    ACE_Message_Block* const block = makeBlock(makeMessage(1, 1));
    EXPECT_EQ(-1, queue_.enqueue_tail(block, &soon));
    qov::releaseWithPackage(block);
  });
  std::thread patient = startSender(1);
  impatient.join();
  makeRoom(kBlock);
  EXPECT_TRUE(gone_.waitFor());
  patient.join();
}

TEST_F(LeaderQueueTest, ASenderThatIsCancelledLeavesItsPlaceInTheLine) {
  if (QOV_TEST_ASAN || QOV_TEST_TSAN) {
    GTEST_SKIP() << "no sanitizer follows a thread that is cancelled in sem_wait()";
  }
  loadModule(kLimit);
  ACE_Message_Block* const block = makeBlock(makeMessage(1, 1));
  std::thread cancelled([&] { queue_.enqueue_tail(block, nullptr); });
  while (waitingSenders() == 0) {
    std::this_thread::yield();
  }
  std::thread patient = startSender(1);
  ASSERT_EQ(0, pthread_cancel(cancelled.native_handle()));
  cancelled.join();
  qov::releaseWithPackage(block);
  EXPECT_EQ(1, waitingSenders());
  makeRoom(kBlock);
  EXPECT_TRUE(gone_.waitFor());
  patient.join();
}

TEST_F(LeaderQueueTest, ASenderThatIsCancelledAsItIsLetInTakesNoRoomAlong) {
  if (QOV_TEST_ASAN || QOV_TEST_TSAN) {
    GTEST_SKIP() << "no sanitizer follows a thread that is cancelled in sem_wait()";
  }
  for (int i = 0; i < 500; ++i) {
    loadModule(kLimit);
    ACE_Message_Block* const block = makeBlock(makeMessage(1, 1));
    std::thread cancelled([&] { queue_.enqueue_tail(block, nullptr); });
    while (waitingSenders() == 0) {
      std::this_thread::yield();
    }
    std::thread other([this] { makeRoom(kLimit); });
    ASSERT_EQ(0, pthread_cancel(cancelled.native_handle()));
    other.join();
    cancelled.join();
    EXPECT_EQ(0, waitingSenders());
    EXPECT_EQ(queue_.message_bytes(), booked());
    // Whoever of the two was first.
    queue_.takeAll();
    EXPECT_EQ(0U, booked());
    qov::releaseWithPackage(block);
  }
}

TEST_F(LeaderQueueTest, SendersAtOnceNeverPassTheLimitTogether) {
  constexpr std::size_t kRoom = 256;
  loadModule(kLimit - kRoom * kBlock);
  std::atomic<int> ready{0};
  std::atomic<std::size_t> taken{0};
  std::vector<std::thread> senders;
  for (int i = 0; i < 8; ++i) {
    senders.emplace_back([&] {
      ++ready;
      while (ready < 8) {
        std::this_thread::yield();
      }
      while (take(makeMessage(3, 1))) {
        ++taken;
      }
    });
  }
  for (std::thread& sender : senders) {
    sender.join();
  }
  EXPECT_EQ(kRoom, taken);
  EXPECT_EQ(kLimit, booked());
}

TEST_F(LeaderQueueTest, WhatIsPassedOnWaitsForTheQueueAloneInItsOrder) {
  fillWith(kModule + 1);
  loadModule(kLimit);
  std::thread own = startSender(1);
  std::thread first = startSender(2, 3, kModule + 1);
  std::thread second = startSender(3, 3, kModule + 1);
  // In the leader's hands now.
  releaseBatch();
  EXPECT_TRUE(gone_.waitFor(2));
  EXPECT_EQ(1, waitingSenders());
  first.join();
  second.join();
  makeRoom(2 * kLimit);
  own.join();
}

TEST_F(LeaderQueueTest, AResponseWaitsWhileTheQueueHoldsTwiceTheLimit) {
  while (take(makeMessage(2, 1))) {
  }
  std::thread sender = startSender(1, 2);
  ACE_Message_Block* block = nullptr;
  EXPECT_LE(0, queue_.dequeue_head(block));
  qov::releaseWithPackage(block);
  sender.join();
}

TEST_F(LeaderQueueTest, ASenderThatWaitsIsLetGoWhenTheQueueIsFlushedAndShut) {
  loadModule(kLimit);
  std::thread sender([this] {
    ACE_Message_Block* const block = makeBlock(makeMessage(1, 1));
    EXPECT_EQ(-1, queue_.enqueue_tail(block, nullptr));
    EXPECT_EQ(ESHUTDOWN, errno);
    qov::releaseWithPackage(block);
  });
  queue_.close();
  sender.join();
}

TEST_F(LeaderQueueTest, NoSenderIsForgottenUnderPressure) {
  constexpr int kSenders = 4;
  constexpr int kEach = 2000;
  std::vector<std::thread> senders;
  for (int i = 0; i < kSenders; ++i) {
    senders.emplace_back([this] {
      for (int n = 0; n < kEach; ++n) {
        loadModule(kLimit);
        makeRoom(kLimit);
        ASSERT_LT(0, queue_.enqueue_tail(makeBlock(makeMessage(1, 1)), nullptr));
      }
    });
  }
  for (int taken = 0; taken < kSenders * kEach;) {
    for (ACE_Message_Block* mb = queue_.takeBatch(); mb != nullptr; ++taken) {
      ACE_Message_Block* const next = mb->next();
      queue_.doneWith(mb->total_size());
      qov::releaseWithPackage(mb);
      mb = next;
    }
    std::this_thread::yield();
  }
  for (std::thread& sender : senders) {
    sender.join();
  }
}

TEST_F(LeaderQueueTest, ANullBlockIsRefused) {
  EXPECT_EQ(-1, queue_.enqueue_tail(nullptr, nullptr));
  EXPECT_EQ(EINVAL, errno);
}
