#include "modules/mqtt/seldom.h"

#include <gtest/gtest.h>

namespace qov::mqtt {
namespace {

TEST(MqttSeldom, TellsTheFirstAndThenTheNumberOfAllAfterTenMinutes) {
  Seldom seldom;
  const Seldom::Clock::time_point start;
  EXPECT_EQ(seldom.add(start), 1U);
  EXPECT_EQ(seldom.add(start), 0U);
  EXPECT_EQ(seldom.add(start + Seldom::kSpan - std::chrono::seconds(1)), 0U);
  EXPECT_EQ(seldom.add(start + Seldom::kSpan), 4U);
  EXPECT_EQ(seldom.add(start + Seldom::kSpan), 0U);
}

}  // namespace
}  // namespace qov::mqtt
