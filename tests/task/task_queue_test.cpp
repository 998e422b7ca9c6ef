#include "task/task_queue.h"

#include <ace/Notification_Strategy.h>
#include <ace/OS_NS_sys_time.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

#include "task/message_block.h"
#include "tests/support/sanitizers.h"
#include "tests/support/sleeping_thread.h"
#include "tests/task/task_fixture.h"

namespace {

class TaskQueueTest : public TaskTest {
 protected:
  ACE_Message_Block* stopBlock() { return new ACE_Message_Block(0, ACE_Message_Block::MB_STOP); }

  /// Fills the queue to its limit.
  void fill() {
    ACE_Time_Value past;
    for (;;) {
      ACE_Message_Block* const block = makeBlock(makeMessage(3, 1));
      if (queue_.enqueue_tail(block, &past) == -1) {
        EXPECT_EQ(EWOULDBLOCK, errno);
        qov::releaseWithPackage(block);
        return;
      }
    }
  }

  /// The next block is `sent`, and goes.
  void expectNext(ACE_Message_Block* sent) {
    ACE_Message_Block* taken = nullptr;
    ASSERT_NE(-1, queue_.dequeue_head(taken));
    EXPECT_EQ(sent, taken);
    qov::releaseWithPackage(taken);
  }

  std::shared_ptr<qov::Admission> makeLedger() {
    return std::make_shared<qov::Admission>(nullptr, kPid, kModule, inLeadersQueue_);
  }

  std::atomic<std::size_t> inLeadersQueue_{0};
  qov::TaskQueue queue_;
};

}  // namespace

TEST_F(TaskQueueTest, APulseBeforeTheWaitEndsTheWait) {
  queue_.pulse();
  ACE_Message_Block* block = nullptr;
  EXPECT_EQ(-1, queue_.dequeue_head(block));
  EXPECT_EQ(nullptr, block);
}

TEST_F(TaskQueueTest, APulseEndsOneWaitOnly) {
  queue_.pulse();
  ACE_Message_Block* block = nullptr;
  EXPECT_EQ(-1, queue_.dequeue_head(block));
  ACE_Time_Value past;
  EXPECT_EQ(-1, queue_.dequeue_head(block, &past));
  EXPECT_EQ(EWOULDBLOCK, errno);
}

TEST_F(TaskQueueTest, AMessageAfterAnEarlyPulseIsTaken) {
  queue_.pulse();
  ACE_Message_Block* const sent = makeBlock(makeMessage(3, 1));
  ASSERT_EQ(1, queue_.enqueue_tail(sent));
  expectNext(sent);
}

TEST_F(TaskQueueTest, AForgottenPulseEndsNoWait) {
  queue_.pulse();
  queue_.clearPulse();
  ACE_Message_Block* block = nullptr;
  ACE_Time_Value past;
  EXPECT_EQ(-1, queue_.dequeue_head(block, &past));
  EXPECT_EQ(EWOULDBLOCK, errno);
}

TEST_F(TaskQueueTest, NoPulseIsLostBetweenTwoThreads) {
  constexpr int kTimes = 20000;
  std::atomic<int> ready{0};
  std::thread waiter([&] {
    for (int i = 0; i < kTimes; ++i) {
      ACE_Message_Block* block = nullptr;
      EXPECT_EQ(-1, queue_.dequeue_head(block));
      ready = i + 1;
    }
  });
  for (int i = 0; i < kTimes; ++i) {
    queue_.pulse();
    while (ready == i) {
      std::this_thread::yield();
    }
  }
  waiter.join();
}

TEST_F(TaskQueueTest, SeveralThreadsMayDequeue) {
  constexpr int kBlocks = 3000;
  std::atomic<int> taken{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&] {
      for (;;) {
        ACE_Message_Block* block = nullptr;
        ASSERT_NE(-1, queue_.dequeue_head(block));
        const bool stop = block->msg_type() == ACE_Message_Block::MB_STOP;
        qov::releaseWithPackage(block);
        if (stop) {
          return;
        }
        ++taken;
      }
    });
  }
  for (int i = 0; i < kBlocks; ++i) {
    queue_.enqueue_tail(makeBlock(makeMessage(3, 1)));
  }
  for (int i = 0; i < 3; ++i) {
    queue_.enqueue_tail(stopBlock());
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(kBlocks, taken);
}

TEST_F(TaskQueueTest, WakesItsWaiterBeforeItTellsAStrategyOfSomebodyElses) {
  class Waiting : public ACE_Notification_Strategy {
   public:
    explicit Waiting(Latch& taken) : ACE_Notification_Strategy(nullptr, 0), taken_(taken) {}
    int notify() override { return taken_.waitFor() ? ++told_, 0 : -1; }
    int notify(ACE_Event_Handler*, ACE_Reactor_Mask) override { return notify(); }

    Latch& taken_;
    int told_ = 0;
  };
  Latch taken;
  Waiting strategy(taken);
  queue_.notification_strategy(&strategy);
  std::atomic<pid_t> id{0};
  ACE_Message_Block* const sent = makeBlock(makeMessage(3, 1));
  std::thread waiter([&] {
    id = ::gettid();
    expectNext(sent);
    taken.count();
  });
  qov::test::waitForThread([&id] { return id != 0 && qov::test::sleeps(id); }, "sleeps");
  EXPECT_EQ(1, queue_.enqueue_tail(sent));
  EXPECT_EQ(1, strategy.told_);
  waiter.join();
  queue_.notification_strategy(nullptr);
}

TEST_F(TaskQueueTest, AStopGetsIntoAFullQueue) {
  fill();
  EXPECT_TRUE(queue_.is_full());
  ACE_Time_Value past;
  EXPECT_LT(0, queue_.enqueue_tail(stopBlock(), &past));
}

TEST_F(TaskQueueTest, AStopEndsTheWaitForAResponseAndStays) {
  queue_.enqueue_tail(stopBlock());
  ACE_Message_Block* block = nullptr;
  EXPECT_EQ(-1, queue_.dequeueBeforeStop(block));
  EXPECT_EQ(nullptr, block);
  EXPECT_EQ(-1, queue_.dequeueBeforeStop(block));
  ASSERT_EQ(0, queue_.dequeue_head(block));
  EXPECT_EQ(ACE_Message_Block::MB_STOP, block->msg_type());
  block->release();
}

TEST_F(TaskQueueTest, AResponseAheadOfAStopIsTaken) {
  ACE_Message_Block* const response = makeBlock(makeMessage(2, 1));
  queue_.enqueue_tail(response);
  queue_.enqueue_tail(stopBlock());
  ACE_Message_Block* block = nullptr;
  EXPECT_NE(-1, queue_.dequeueBeforeStop(block));
  EXPECT_EQ(response, block);
  qov::releaseWithPackage(block);
}

TEST_F(TaskQueueTest, AClosedQueueRefusesEvenAStop) {
  queue_.deactivate();
  ACE_Message_Block* const stop = stopBlock();
  EXPECT_EQ(-1, queue_.enqueue_tail(stop));
  EXPECT_EQ(ESHUTDOWN, errno);
  stop->release();
}

TEST_F(TaskQueueTest, WhatIsLeftIsFreedWithItsPackage) {
  const int before = CountedPackage::alive();
  {
    qov::TaskQueue queue;
    queue.enqueue_tail(makeBlock(makeMessage(1, 1)));
    queue.enqueue_tail(stopBlock());
    queue.enqueue_tail(makeBlock(makeMessage(3, 2)));
    queue.deactivate();
    EXPECT_EQ(before + 2, CountedPackage::alive());
  }
  EXPECT_EQ(before, CountedPackage::alive());
}

TEST_F(TaskQueueTest, TakesEverythingInOrderEvenWhenClosed) {
  ACE_Message_Block* const first = makeBlock(makeMessage(3, 1));
  ACE_Message_Block* const second = makeBlock(makeMessage(3, 2));
  queue_.enqueue_tail(first);
  queue_.enqueue_tail(second);
  queue_.deactivate();
  ACE_Message_Block* const all = queue_.takeAll();
  ASSERT_EQ(first, all);
  ASSERT_EQ(second, all->next());
  EXPECT_EQ(nullptr, second->next());
  EXPECT_TRUE(queue_.is_empty());
  EXPECT_EQ(0U, queue_.message_bytes());
  qov::releaseWithPackage(first);
  qov::releaseWithPackage(second);
}

TEST_F(TaskQueueTest, CountsItsBytesIntoTheLedgerOfTheModule) {
  const auto ledger = makeLedger();
  queue_.enqueue_tail(makeBlock(makeMessage(3, 1)));
  queue_.countInto(ledger);
  EXPECT_EQ(8U, ledger->booked());
  queue_.enqueue_tail(makeBlock(makeMessage(3, 2)));
  EXPECT_EQ(16U, ledger->booked());
  ACE_Message_Block* block = nullptr;
  queue_.dequeue_head(block);
  EXPECT_EQ(8U, ledger->booked());
  qov::releaseWithPackage(block);
  qov::releaseWithPackage(queue_.takeAll());
  EXPECT_EQ(0U, ledger->booked());
}

TEST_F(TaskQueueTest, CountsEveryWayInAndOut) {
  const auto ledger = makeLedger();
  queue_.countInto(ledger);
  queue_.enqueue_head(makeBlock(makeMessage(3, 1)));
  queue_.enqueue_prio(makeBlock(makeMessage(3, 2)));
  queue_.enqueue_deadline(makeBlock(makeMessage(3, 3)));
  queue_.enqueue_tail(makeBlock(makeMessage(3, 4)));
  EXPECT_EQ(32U, ledger->booked());
  ACE_Message_Block* block = nullptr;
  queue_.dequeue_tail(block);
  qov::releaseWithPackage(block);
  queue_.dequeue_prio(block);
  qov::releaseWithPackage(block);
  queue_.dequeue_deadline(block);
  qov::releaseWithPackage(block);
  EXPECT_EQ(8U, ledger->booked());
}

TEST_F(TaskQueueTest, CountsWhatIsFlushed) {
  const auto ledger = makeLedger();
  queue_.countInto(ledger);
  queue_.enqueue_tail(stopBlock());
  queue_.enqueue_tail(new ACE_Message_Block(100));
  EXPECT_EQ(100U, ledger->booked());
  EXPECT_EQ(2, queue_.flush());
  EXPECT_EQ(0U, ledger->booked());
}

TEST_F(TaskQueueTest, CountsRightInTheEndWhateverMarksAreSet) {
  const auto ledger = makeLedger();
  queue_.countInto(ledger);
  queue_.high_water_mark(100);
  queue_.low_water_mark(0);
  for (int i = 0; i < 3; ++i) {
    queue_.enqueue_tail(makeBlock(makeMessage(3, 1)));
  }
  for (int i = 0; i < 3; ++i) {
    ACE_Message_Block* block = nullptr;
    queue_.dequeue_head(block);
    qov::releaseWithPackage(block);
  }
  EXPECT_EQ(0U, ledger->booked());
}

TEST_F(TaskQueueTest, MovesFromOneLedgerToTheOther) {
  const auto first = makeLedger();
  const auto second = makeLedger();
  queue_.enqueue_tail(makeBlock(makeMessage(3, 1)));
  queue_.countInto(first);
  queue_.countInto(second);
  EXPECT_EQ(0U, first->booked());
  EXPECT_EQ(8U, second->booked());
}

TEST_F(TaskQueueTest, ANullBlockIsRefused) {
  EXPECT_EQ(-1, queue_.enqueue_tail(nullptr, nullptr));
  EXPECT_EQ(EINVAL, errno);
}

TEST_F(TaskQueueTest, AQueueThatCountsIntoALedgerHasNoLimitOfItsOwn) {
  fill();
  queue_.countInto(makeLedger());
  ACE_Time_Value past;
  EXPECT_LT(0, queue_.enqueue_tail(makeBlock(makeMessage(3, 1)), &past));
}

TEST_F(TaskQueueTest, WhoWaitsForItsLimitIsLetInWhenItHasNoneAnyMore) {
  fill();
  constexpr std::size_t kSenders = 3;
  std::array<std::atomic<pid_t>, kSenders> ids{};
  std::vector<std::thread> senders;
  for (std::atomic<pid_t>& id : ids) {
    senders.emplace_back([this, &id] {
      id = ::gettid();
      EXPECT_LT(0, queue_.enqueue_tail(makeBlock(makeMessage(3, 1))));
    });
  }
  for (const std::atomic<pid_t>& id : ids) {
    qov::test::waitForThread([&id] { return id != 0 && qov::test::sleeps(id); }, "sleeps");
  }
  queue_.countInto(makeLedger());
  for (std::thread& sender : senders) {
    sender.join();
  }
}

TEST_F(TaskQueueTest, ServesOnWhenAThreadIsCancelledThatWaitsForABlock) {
  if (QOV_TEST_ASAN || QOV_TEST_TSAN) {
    GTEST_SKIP() << "no sanitizer follows a thread that is cancelled in sem_wait()";
  }
  std::thread cancelled([this] {
    ACE_Message_Block* block = nullptr;
    queue_.dequeue_head(block);
    ADD_FAILURE() << "the wait has ended";
  });
  // Takes effect once it waits.
  ASSERT_EQ(0, pthread_cancel(cancelled.native_handle()));
  cancelled.join();
  ACE_Message_Block* const block = makeBlock(makeMessage(3, 1));
  ASSERT_LT(0, queue_.enqueue_tail(block));
  expectNext(block);
}
