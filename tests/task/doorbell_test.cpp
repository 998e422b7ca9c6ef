#include "task/doorbell.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

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
      EXPECT_TRUE(there.wait(std::nullopt));
      back.ring();
    }
  });
  for (int i = 0; i < kTimes; ++i) {
    there.ring();
    EXPECT_TRUE(back.wait(std::nullopt));
  }
  other.join();
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
    EXPECT_TRUE(first->wait(std::nullopt));
    own.ring();
  });
  const RingCollector collector;
  qov::ring(first);
  EXPECT_TRUE(own.wait(std::nullopt));
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
  std::thread other([&] { EXPECT_TRUE(bells.front()->wait(std::nullopt)); });
  other.join();
}

TEST(RingCollector, KeepsNobodyWaitingForWhatNeverEnds) {
  const auto bell = std::make_shared<Doorbell>();
  const RingCollector collector;
  std::thread other([&] { EXPECT_TRUE(bell->wait(std::nullopt)); });
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
    EXPECT_TRUE(bell->wait(std::nullopt));
  });
  other.join();
}
