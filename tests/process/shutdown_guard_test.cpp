#include <unistd.h>

#include "tests/process/agent_test.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace qov::test {
namespace {

constexpr const char* kMade = "guard of 450 seconds is made";
constexpr const char* kGuardKnows = "guard knows of the shutdown";
constexpr const char* kGone = "guard is gone";
constexpr const char* kReloaded = "Log settings in force";

/// An agent whose guard logs what becomes of it.
class AgentGuard : public AgentTest {
 protected:
  AgentGuard() : AgentTest(QOV_TEST_GUARD_AGENT) {}

  /// Each text stands behind the one before.
  void logsInTurn(const std::vector<std::string>& texts) {
    const std::string log = agent.log();
    std::size_t at = 0;
    for (const std::string& text : texts) {
      at = log.find(text, at);
      ASSERT_NE(at, std::string::npos) << text << " is missing, or too early, in\n" << log;
      at += text.size();
    }
  }
};

TEST_F(AgentGuard, IsAtRestWhileTheEventLoopRuns) {
  agent.root().writeConfig(2);
  starts({"chatter"});
  ASSERT_TRUE(appliesTheDebugLevel()) << "the loop does not run";
  EXPECT_THAT(agent.log(), HasSubstr(kMade));
  EXPECT_THAT(agent.log(), Not(HasSubstr(kGuardKnows)));
  stopsInOrder();
}

TEST_F(AgentGuard, SupervisesTheShutdownFromItsFirstStepToItsLast) {
  agent.root().writeConfig(0);
  starts({"plugged"});
  stopsInOrder();
  logsInTurn({"enter void CQOVapp::event_loop_done()...", kMade, kGuardKnows,
              "enter void CQOV_Module_Loader::unload()...", kStopped, kGone,
              "leave void CQOVapp::event_loop_done(): OK"});
}

TEST_F(AgentGuard, SupervisesTheTracesOfTheShutdownToo) {
  agent.root().writeConfig(0);
  starts({"named"});
  stopsInOrder();
  logsInTurn({kMade, "enter void CQOVapp::event_loop_done()...", kGuardKnows,
              "leave void CQOVapp::event_loop_done(): OK", kGone});
}

TEST_F(AgentGuard, IsAtRestInASecondEventLoopUntilThatIsStopped) {
  agent.setEnvironment("QOV_TEST_MAIN", "loops");
  agent.root().writeConfig(2);
  starts({"named"});
  agent.send(SIGINT);
  ASSERT_TRUE(agent.waitForLog(kStopped));
  agent.send(SIGUSR1);
  ASSERT_TRUE(agent.waitForLog(kReloaded)) << "the second loop does not run" << agent.log();
  stopsInOrder();
  const std::string second = agent.log().substr(agent.log().find(kStopped));
  EXPECT_THAT(second.substr(0, second.find(kReloaded)), Not(HasSubstr(kGuardKnows)));
  EXPECT_THAT(second.substr(second.find(kReloaded)), HasSubstr(kGuardKnows));
}

class AgentHang : public AgentTest {};

TEST_F(AgentHang, InTheShutdownIsEndedByItsGuard) {
  // 450 of its seconds.
  agent.setEnvironment("PXOS_GUARD_SECOND_MS", "1");
  starts({"stuck"});
  agent.send(SIGINT);
  EXPECT_EQ(agent.waitForEnd().signal, SIGABRT);
  EXPECT_THAT(agent.errors(), HasSubstr("has not ended within 450 s, aborting"));
}

}  // namespace
}  // namespace qov::test
