#include "link/deadline.h"

#include <gtest/gtest.h>

#include <climits>

namespace qov::test {
namespace {

int pollTimeoutOf(const ACE_Time_Value& timeout) {
  return Deadline(&timeout).pollTimeout();
}

TEST(Deadline, IsNeverWithoutATimeout) {
  EXPECT_EQ(Deadline(nullptr).pollTimeout(), -1);
}

TEST(Deadline, IsOverWithNoTime) {
  EXPECT_EQ(pollTimeoutOf(ACE_Time_Value::zero), 0);
  EXPECT_EQ(pollTimeoutOf(ACE_Time_Value(-1)), 0);
}

TEST(Deadline, IsWhatIsLeft) {
  const int left = pollTimeoutOf(ACE_Time_Value(3600));
  EXPECT_LE(left, 3600000);
  EXPECT_GT(left, 3000000);
}

TEST(Deadline, CountsTheMillisecondThatHasBegun) {
  // Each try asks within the first millisecond, unless the thread has to wait just then.
  constexpr int kTries = 10000;
  int left = 0;
  for (int i = 0; i < kTries && left != 3600000; ++i) {
    left = pollTimeoutOf(ACE_Time_Value(3600));
  }
  EXPECT_EQ(left, 3600000);
}

TEST(Deadline, IsSharedInEqualParts) {
  const ACE_Time_Value hour(3600);
  const int left = Deadline(&hour).share(3).pollTimeout();
  EXPECT_LE(left, 1200000);
  EXPECT_GT(left, 1000000);
  EXPECT_EQ(Deadline(&ACE_Time_Value::zero).share(3).pollTimeout(), 0);
  EXPECT_EQ(Deadline(nullptr).share(3).pollTimeout(), -1);
}

TEST(Deadline, IsAsFarAsAPollGoesWhenItIsFurther) {
  EXPECT_EQ(pollTimeoutOf(ACE_Time_Value(100L * 24 * 3600)), INT_MAX);
  EXPECT_EQ(pollTimeoutOf(ACE_Time_Value::max_time), INT_MAX);
}

}  // namespace
}  // namespace qov::test
