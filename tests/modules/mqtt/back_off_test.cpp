#include "modules/mqtt/back_off.h"

#include <gtest/gtest.h>

namespace qov::test {
namespace {

using mqtt::BackOff;
using std::chrono::milliseconds;
using std::chrono::seconds;

BackOff::Duration::rep highest(BackOff::Duration::rep, BackOff::Duration::rep most) {
  return most;
}

TEST(MqttBackOff, DrawsFromASpanThatDoublesToTheLongest) {
  BackOff backOff(seconds(60), highest);
  for (const int expected : {2, 4, 8, 16, 32, 60, 60}) {
    EXPECT_EQ(backOff.next(), seconds(expected));
  }
}

TEST(MqttBackOff, BeginsAnewAfterSuccess) {
  BackOff backOff(seconds(60), highest);
  backOff.next();
  backOff.next();
  backOff.reset();
  EXPECT_EQ(backOff.next(), seconds(2));
}

TEST(MqttBackOff, NeverWaitsForLessThanASecond) {
  BackOff backOff(seconds(60), [](auto least, auto) { return least; });
  EXPECT_EQ(backOff.next(), seconds(1));
  EXPECT_EQ(backOff.next(), seconds(1));
}

TEST(MqttBackOff, WaitsASecondIfThatIsTheLongest) {
  BackOff backOff(seconds(1));
  EXPECT_EQ(backOff.next(), seconds(1));
  EXPECT_EQ(backOff.next(), seconds(1));
}

TEST(MqttBackOff, DiffersFromAgentToAgent) {
  BackOff one(seconds(60));
  BackOff other(seconds(60));
  bool differ = false;
  for (int i = 0; i < 20; ++i) {
    const auto wait = one.next();
    EXPECT_GE(wait, seconds(1));
    EXPECT_LE(wait, seconds(60));
    differ = wait != other.next() || differ;
  }
  EXPECT_TRUE(differ);
}

}  // namespace
}  // namespace qov::test
