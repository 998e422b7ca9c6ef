// What the module has the agent do: its log's level, and a reload.
#include "tests/modules/status/status_fixture.h"

namespace qov::test {
namespace {

using nlohmann::json;

constexpr int kInfo = 2;

TEST_F(StatusTest, SetsTheLevelOfTheLogUntilAReload) {
  configure("", kInfo);
  startsWith({"chatter"});
  EXPECT_EQ(client().ask({{"request", "log-level"}}), json({{"level", kInfo}}));
  EXPECT_EQ(client().ask({{"request", "log-level"}, {"level", 1}}), json({{"level", 1}}));
  EXPECT_TRUE(agent.waitForLog(kDebugLine));
  EXPECT_TRUE(client().ask({{"request", "reload"}}).contains("reload"));
  EXPECT_TRUE(agent.waitForLog(kReloaded));
  EXPECT_EQ(status()["log"]["level"], kInfo);
}

TEST_F(StatusTest, EveryLevelIsToldAsItWasSet) {
  startsWith();
  for (const int level : {0, 1, 2, 4, 5}) {
    EXPECT_EQ(client().ask({{"request", "log-level"}, {"level", level}})["level"], level);
    EXPECT_EQ(status()["log"]["level"], level);
  }
  EXPECT_EQ(client().ask({{"request", "log-level"}, {"level", 3}})["level"], 2);
}

TEST_F(StatusTest, ALogThatFallsSilentSaysWhy) {
  startsWith();
  client().ask({{"request", "log-level"}, {"level", 5}});
  EXPECT_TRUE(agent.waitForLog("The log level is 5 until it is set or read again"));
}

TEST_F(StatusTest, ALevelThatThereIsNotIsRefused) {
  startsWith();
  for (const json& level : {json(6), json(-1), json("1"), json(1.5), json(1e300)}) {
    EXPECT_TRUE(client().ask({{"request", "log-level"}, {"level", level}}).contains("error"))
        << level;
  }
  EXPECT_EQ(status()["log"]["level"], 1);
}

TEST_F(StatusTest, ARequestThatThereIsNotIsToldAndTheConnectionGoesOn) {
  startsWith();
  StatusClient asking = client();
  EXPECT_EQ(asking.ask({{"request", "dance"}}), json({{"error", "no such request"}}));
  EXPECT_TRUE(asking.ask({{"request", "modules"}}).contains("modules"));
}

}  // namespace
}  // namespace qov::test
