#include "tests/process/agent_test.h"

using ::testing::ContainsRegex;
using ::testing::HasSubstr;

namespace qov::test {
namespace {

/// Agents whose only module initialises for ever.
class AgentHangingStart : public AgentTest, public ::testing::WithParamInterface<int> {
 protected:
  void hangsInItsStart(const std::vector<std::string>& arguments) {
    agent.setEnvironment("QOV_TEST_WAIT", "1");
    agent.useModules({"state"});
    agent.start(arguments);
    ASSERT_TRUE(agent.waitForFile("state"));
  }

  void isEndedBy(const Ending& ending, int signum) {
    EXPECT_TRUE(ending.ended) << "hangs";
    EXPECT_EQ(ending.signal, signum) << ending.exitStatus << agent.errors();
  }

  static std::string reasonFor(int signum) {
    return std::string("Failed to stop in order at ") + (signum == SIGINT ? "SIGINT" : "SIGTERM") +
           ": loading module qovp_state has not ended";
  }
};

std::string nameOf(const ::testing::TestParamInfo<int>& info) {
  return info.param == SIGINT ? "Sigint" : "Sigterm";
}

INSTANTIATE_TEST_SUITE_P(Both, AgentHangingStart, ::testing::Values(SIGINT, SIGTERM), nameOf);

TEST_P(AgentHangingStart, IsEndedByAStopSignalAndNamesTheModule) {
  hangsInItsStart({"-n"});
  agent.send(GetParam());
  isEndedBy(agent.waitForEnd(), GetParam());
  EXPECT_THAT(agent.errors(), HasSubstr(reasonFor(GetParam())));
  EXPECT_THAT(agent.errors(), ContainsRegex("thread [0-9]+ \\(m40-leader\\): sleeping"));
  EXPECT_THAT(agent.log(),
              ContainsRegex("\\[65751\\]\\[ERR\\]\\[QOVPUBLIC\\].* " + reasonFor(GetParam())));
}

TEST_P(AgentHangingStart, OfADaemonIsEndedByAStopSignalAndNamesTheModule) {
  hangsInItsStart({});
  ASSERT_TRUE(agent.findDaemon());
  agent.send(GetParam());
  isEndedBy(agent.waitForDaemonEnd(), GetParam());
  EXPECT_THAT(agent.log(), HasSubstr(reasonFor(GetParam())));
}

TEST_F(AgentTest, LeavesNoThreadBehindThatHasWatchedTheStart) {
  starts({"named"});
  ASSERT_TRUE(waitUntil([&] { return agent.threadNames().count("qov-stop-watch") != 0; }))
      << "the event loop does not run";
  EXPECT_EQ(agent.threadNames().count("qov-start-watch"), 0u);
  stopsInOrder();
}

}  // namespace
}  // namespace qov::test
