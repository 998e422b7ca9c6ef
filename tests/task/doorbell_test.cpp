#include "task/doorbell.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <csignal>
#include <thread>
#include <vector>

#include "tests/support/sanitizers.h"

namespace {

using qov::Doorbell;
using qov::RingCollector;

Doorbell::Clock::time_point soon() {
  return Doorbell::Clock::now() + std::chrono::milliseconds(20);
}

}  // namespace

TEST(Doorbell, ARingBeforeTheWaitEndsTheWait) {
  Doorbell bell;
  bell.ring();
  EXPECT_TRUE(bell.wait(soon()));
}

TEST(Doorbell, ManyRingsEndOneWait) {
  Doorbell bell;
  bell.ring();
  bell.ring();
  EXPECT_TRUE(bell.wait(soon()));
  EXPECT_FALSE(bell.wait(soon()));
}

TEST(Doorbell, NoRingIsLostBetweenTwoThreads) {
  constexpr int kTimes = 20000;
  Doorbell there;
  Doorbell back;
  std::thread other([&] {
    for (int i = 0; i < kTimes; ++i) {
      EXPECT_TRUE(there.wait());
      back.ring();
    }
  });
  for (int i = 0; i < kTimes; ++i) {
    there.ring();
    EXPECT_TRUE(back.wait());
  }
  other.join();
}

TEST(Doorbell, AWaitThatNobodyRingsForEndsAtItsDeadline) {
  Doorbell bell;
  const Doorbell::Clock::time_point deadline = soon();
  EXPECT_FALSE(bell.wait(deadline));
  EXPECT_LE(deadline, Doorbell::Clock::now());
}

TEST(Doorbell, EndsAWaitThatASignalHandlerHasInterrupted) {
  static std::atomic<int> handled;
  handled = 0;
  struct sigaction counting = {};
  counting.sa_handler = [](int) { ++handled; };
  struct sigaction before = {};
  ASSERT_EQ(0, ::sigaction(SIGUSR2, &counting, &before));
  Doorbell bell;
  std::thread waiter([&] { EXPECT_TRUE(bell.wait()); });
  // Again and again, since ThreadSanitizer keeps one back that comes just before the wait.
  while (handled == 0) {
    ASSERT_EQ(0, ::pthread_kill(waiter.native_handle(), SIGUSR2));
    std::this_thread::yield();
  }
  bell.ring();
  waiter.join();
  ::sigaction(SIGUSR2, &before, nullptr);
}

TEST(Doorbell, EachOfManyRingsOfManyThreadsIsFollowedByALook) {
  // What the ringers leave is all seen by the waiter, who looks after each ring only.
  constexpr int kRingers = 3;
  constexpr int kEach = 20000;
  Doorbell bell;
  std::atomic<int> left{0};
  std::vector<std::thread> ringers;
  for (int i = 0; i < kRingers; ++i) {
    ringers.emplace_back([&] {
      for (int n = 0; n < kEach; ++n) {
        left.fetch_add(1, std::memory_order_relaxed);
        bell.ring();
      }
    });
  }
  for (int seen = 0; seen < kRingers * kEach; seen = left.load(std::memory_order_relaxed)) {
    EXPECT_TRUE(bell.wait());
  }
  for (std::thread& ringer : ringers) {
    ringer.join();
  }
}

TEST(Doorbell, SeveralThatWaitAreRungForOneByOne) {
  constexpr int kWaiters = 4;
  Doorbell bell;
  std::atomic<int> ended{0};
  std::vector<std::thread> waiters;
  for (int i = 0; i < kWaiters; ++i) {
    waiters.emplace_back([&] {
      EXPECT_TRUE(bell.wait());
      ++ended;
    });
  }
  for (int i = 1; i <= kWaiters; ++i) {
    bell.ring();
    while (ended < i) {
      std::this_thread::yield();
    }
    EXPECT_EQ(i, ended);
  }
  for (std::thread& waiter : waiters) {
    waiter.join();
  }
}

TEST(Doorbell, RingsOnWhenAThreadIsCancelledThatWaits) {
  if (QOV_TEST_ASAN || QOV_TEST_TSAN) {
    GTEST_SKIP() << "no sanitizer follows a thread that is cancelled in sem_wait()";
  }
  Doorbell bell;
  std::thread cancelled([&] {
    bell.wait();
    ADD_FAILURE() << "the wait has ended";
  });
  // Takes effect once it waits.
  ASSERT_EQ(0, ::pthread_cancel(cancelled.native_handle()));
  cancelled.join();
  EXPECT_FALSE(bell.wait(soon()));
  bell.ring();
  EXPECT_TRUE(bell.wait(soon()));
}

TEST(RingCollector, RingsAtItsEnd) {
  const auto bell = std::make_shared<Doorbell>();
  {
    const RingCollector collector;
    qov::ring(bell);
    qov::ring(bell);
  }
  EXPECT_TRUE(bell->wait(soon()));
}

TEST(RingCollector, OneWithinAnotherLeavesTheRingsToThat) {
  const auto bell = std::make_shared<Doorbell>();
  {
    const RingCollector outer;
    {
      const RingCollector inner;
      qov::ring(bell);
    }
    // Kept, or else there would be one owner.
    EXPECT_EQ(2, bell.use_count());
  }
  EXPECT_EQ(1, bell.use_count());
  EXPECT_TRUE(bell->wait(soon()));
}

TEST(RingCollector, KeepsABellThatItsOwnerHasLeft) {
  auto bell = std::make_shared<Doorbell>();
  const std::weak_ptr<Doorbell> seen = bell;
  {
    const RingCollector collector;
    qov::ring(bell);
    bell.reset();
    EXPECT_FALSE(seen.expired());
  }
  EXPECT_TRUE(seen.expired());
}

TEST(RingCollector, RingsBeforeItsThreadWaits) {
  const auto first = std::make_shared<Doorbell>();
  Doorbell own;
  std::thread other([&] {
    EXPECT_TRUE(first->wait());
    own.ring();
  });
  const RingCollector collector;
  qov::ring(first);
  EXPECT_TRUE(own.wait());
  other.join();
}

TEST(RingCollector, KeepsNobodyWaitingForALongBatch) {
  std::vector<std::shared_ptr<Doorbell>> bells;
  const RingCollector collector;
  for (int i = 0; i < 16; ++i) {
    bells.push_back(std::make_shared<Doorbell>());
    qov::ring(bells.back());
  }
  // Waited for by a thread that collects nothing itself.
  std::thread other([&] { EXPECT_TRUE(bells.front()->wait()); });
  other.join();
}

TEST(RingCollector, KeepsNobodyWaitingForWhatNeverEnds) {
  const auto bell = std::make_shared<Doorbell>();
  const RingCollector collector;
  std::thread other([&] { EXPECT_TRUE(bell->wait()); });
  for (int i = 0; i < 1000; ++i) {
    qov::ring(bell);
  }
  other.join();
}

TEST(RingCollector, OfOneThreadDoesNotConcernAnother) {
  const auto bell = std::make_shared<Doorbell>();
  const RingCollector collector;
  std::thread other([&] {
    qov::ring(bell);
    EXPECT_TRUE(bell->wait());
  });
  other.join();
}
