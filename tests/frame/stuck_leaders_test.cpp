#include "frame/app/stuck_leaders.h"

#include <gtest/gtest.h>

#include <chrono>
#include <vector>

namespace {

using std::chrono::seconds;

constexpr unsigned int kModule = 20;
const qov::StuckLeaders::Clock::time_point kBegin{};

class StuckLeadersTest : public ::testing::Test {
 protected:
  /// How long the leader counts as stuck, in seconds; 0 when it does not.
  long look(long when, unsigned int steps, bool hasWork) {
    const auto stuck = leaders_.look(kBegin + seconds(when), {{kModule, "slow", {steps, hasWork}}});
    return stuck.empty() ? 0 : std::chrono::duration_cast<seconds>(stuck.front().stuckFor).count();
  }

  qov::StuckLeaders leaders_{seconds(5)};
};

}  // namespace

TEST_F(StuckLeadersTest, AreThoseThatHaveOneTurnForTheLimit) {
  EXPECT_EQ(0, look(0, 7, true));
  EXPECT_EQ(0, look(4, 7, true));
  EXPECT_EQ(5, look(5, 7, true));
  EXPECT_EQ(9, look(9, 7, true));
}

TEST_F(StuckLeadersTest, AreNotThoseThatHaveAnotherTurn) {
  EXPECT_EQ(0, look(0, 7, true));
  EXPECT_EQ(0, look(4, 8, true));
  EXPECT_EQ(0, look(8, 9, true));
  EXPECT_EQ(0, look(12, 9, true));
  EXPECT_EQ(5, look(13, 9, true));
}

TEST_F(StuckLeadersTest, AreNotThoseThatHaveNothingToDo) {
  EXPECT_EQ(0, look(0, 7, false));
  EXPECT_EQ(0, look(60, 7, false));
}

TEST_F(StuckLeadersTest, AreStuckFromTheFirstLookThatSeesTheirWork) {
  EXPECT_EQ(0, look(0, 7, false));
  EXPECT_EQ(0, look(60, 7, true));
  EXPECT_EQ(6, look(66, 7, true));
  EXPECT_EQ(0, look(67, 8, true));
}

TEST_F(StuckLeadersTest, AreForgottenWithTheirModules) {
  EXPECT_EQ(0, look(0, 7, true));
  EXPECT_TRUE(leaders_.look(kBegin + seconds(1), {}).empty());
  EXPECT_EQ(0, look(9, 7, true));
}
