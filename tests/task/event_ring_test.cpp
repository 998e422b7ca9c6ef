#include "task/event_ring.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>

namespace {

constexpr std::uint64_t kRoom = QOVMessageTrace::kRoom;

class EventRingTest : public ::testing::Test {
 protected:
  static QOVTraceEvent event(std::uint64_t opc) {
    QOVTraceEvent event;
    event.opc_ = opc;
    return event;
  }

  /// Adds so many events, each with its number as operation code if they are all that there are.
  void add(std::uint64_t count) {
    for (std::uint64_t i = 0; i < count; ++i) {
      qov::EventRing::Place place(*ring_);
      place.fill(event(ring_->next() - 1));
    }
  }

  /// How many of the newest events a reader waits for.
  static constexpr std::uint64_t kWaitedFor = 1024;

  const std::unique_ptr<qov::EventRing> ring_ = std::make_unique<qov::EventRing>();
};

}  // namespace

TEST_F(EventRingTest, KeepsTheEventThatHasOvertakenAnOlderOne) {
  qov::EventRing::Place late(*ring_);
  add(kRoom);
  late.fill(event(0));
  const auto part = ring_->read(1, kRoom);
  EXPECT_EQ(0U, part.lost_);
  ASSERT_EQ(kRoom, part.events_.size());
  EXPECT_EQ(kRoom, part.events_.back().opc_);
}

TEST_F(EventRingTest, IsReadUpToAnEventThatIsStillWritten) {
  add(1);
  qov::EventRing::Place unfinished(*ring_);
  add(1);
  const auto part = ring_->read(0, kRoom);
  EXPECT_EQ(1U, part.events_.size());
  EXPECT_EQ(1U, part.next_);
  unfinished.fill(event(1));
  EXPECT_EQ(2U, ring_->read(part.next_, kRoom).events_.size());
}

TEST_F(EventRingTest, IsReadUpToAnUnfinishedEventAmongTheNewest) {
  const qov::EventRing::Place unfinished(*ring_);
  add(kWaitedFor - 1);
  EXPECT_EQ(0U, ring_->read(0, kRoom).next_);
}

TEST_F(EventRingTest, IsReadPastAnUnfinishedEventThatIsOlder) {
  const qov::EventRing::Place unfinished(*ring_);
  add(kWaitedFor);
  const auto part = ring_->read(0, kRoom);
  EXPECT_EQ(1U, part.lost_);
  EXPECT_EQ(kWaitedFor, part.events_.size());
}

TEST_F(EventRingTest, IsReadPastAnEventThatWasGivenUpOnceNobodyWrites) {
  { const qov::EventRing::Place givenUp(*ring_); }
  add(1);
  const auto part = ring_->read(0, kRoom);
  EXPECT_EQ(1U, part.lost_);
  EXPECT_EQ(1U, part.events_.size());
  EXPECT_EQ(2U, part.next_);
}

TEST_F(EventRingTest, HasNothingAtTheNumberOfTheNextEvent) {
  add(2);
  const auto part = ring_->read(2, kRoom);
  EXPECT_TRUE(part.events_.empty());
  EXPECT_EQ(2U, part.next_);
  EXPECT_EQ(0U, part.lost_);
}
