#include "platform/guard_slots.h"

#include <gtest/gtest.h>

using qov::platform::GuardSlot;

TEST(GuardSlot, ShowsTheDeadlineWhileItIsOpen) {
  GuardSlot slot;
  EXPECT_EQ(slot.deadline(), 0);
  slot.open(500, {1, 2, 3, nullptr});
  EXPECT_FALSE(slot.isFree());
  EXPECT_EQ(slot.deadline(), 500);
  EXPECT_FALSE(slot.close());
  EXPECT_TRUE(slot.isFree());
}

TEST(GuardSlot, TellsTheClosingThreadThatItWasClaimed) {
  GuardSlot slot;
  GuardSlot::Handling overdue{};
  slot.open(500, {1, 2, 3, nullptr});
  ASSERT_TRUE(slot.claim(500, overdue));
  EXPECT_EQ(overdue.kind, 1u);
  EXPECT_EQ(overdue.level, 2u);
  EXPECT_EQ(overdue.seconds, 3u);
  EXPECT_EQ(slot.deadline(), 0) << "nothing is left to watch";
  EXPECT_FALSE(slot.isFree());
  EXPECT_TRUE(slot.close());
}

TEST(GuardSlot, CannotBeClaimedTwice) {
  GuardSlot slot;
  GuardSlot::Handling overdue{};
  slot.open(500, {1, 2, 3, nullptr});
  ASSERT_TRUE(slot.claim(500, overdue));
  EXPECT_FALSE(slot.claim(500, overdue));
}

TEST(GuardSlot, CannotBeClaimedOnceItIsClosed) {
  GuardSlot slot;
  GuardSlot::Handling overdue{};
  slot.open(500, {1, 2, 3, nullptr});
  slot.close();
  EXPECT_FALSE(slot.claim(500, overdue));
  slot.open(900, {1, 2, 3, nullptr});
  EXPECT_FALSE(slot.claim(500, overdue)) << "the guard that is open now is another";
}
