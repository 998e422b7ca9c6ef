#include "tests/process/agent_test.h"

using ::testing::HasSubstr;

namespace qov::test {
namespace {

/// What both stop signals do alike.
class AgentStopSignal : public AgentTest, public ::testing::WithParamInterface<int> {
 protected:
  void stopsAfterTheSignal() {
    agent.send(GetParam());
    hasEndedInOrder(agent.waitForEnd());
  }

  /// A process whose only module initialises until the test makes the file "go".
  void startsSlowly(const std::string& wait) {
    agent.setEnvironment("QOV_TEST_WAIT", wait);
    agent.useModules({"state"});
    agent.start({"-n"});
    ASSERT_TRUE(agent.waitForFile("state"));
  }
};

std::string nameOfSignal(const ::testing::TestParamInfo<int>& info) {
  return info.param == SIGINT ? "Sigint" : "Sigterm";
}

INSTANTIATE_TEST_SUITE_P(Both, AgentStopSignal, ::testing::Values(SIGINT, SIGTERM), nameOfSignal);

TEST_P(AgentStopSignal, EndsAProcessWhoseModulesWork) {
  starts({"chatter", "other_chatter"});
  ASSERT_TRUE(agent.waitForLog(kInfoLine));
  stopsAfterTheSignal();
  logsInOrder({"Unload module qovp_chatter!", "Unload module qovp_other_chatter!", kStopped});
}

TEST_P(AgentStopSignal, EndsADaemonInOrder) {
  starts({"state"}, {});
  ASSERT_TRUE(agent.findDaemon());
  agent.send(GetParam());
  hasEndedInOrder(agent.waitForDaemonEnd());
}

TEST_P(AgentStopSignal, StopsAProcessWhoseStarterHasBlockedIt) {
  agent.prepareChild([] {
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, GetParam());
    ::sigprocmask(SIG_BLOCK, &one, nullptr);
  });
  starts({"state"});
  stopsAfterTheSignal();
}

TEST_P(AgentStopSignal, StopsAProcessWhoseStarterHasIgnoredIt) {
  agent.prepareChild([] { ::signal(GetParam(), SIG_IGN); });
  starts({"state"});
  stopsAfterTheSignal();
}

TEST_P(AgentStopSignal, DuringTheStartIsCarriedOutBehindIt) {
  startsSlowly("1");
  agent.send(SIGUSR1);
  agent.send(GetParam());
  agent.makeFile("go");
  hasEndedInOrder(agent.waitForEnd());
  logsInOrder({kStarted, kStopped});
}

TEST_P(AgentStopSignal, DuringAStartThatFailsEndsTheProcessByItself) {
  startsSlowly("then fail");
  agent.send(GetParam());
  agent.makeFile("go");
  EXPECT_EQ(agent.waitForEnd().signal, GetParam());
  EXPECT_THAT(agent.log(), HasSubstr("Failed to init module qovp_state!"));
}

}  // namespace
}  // namespace qov::test
