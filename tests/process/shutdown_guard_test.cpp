#include <unistd.h>

#include "tests/process/agent_test.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace qov::test {
namespace {

constexpr const char* kGuardKnows = "guard knows of the shutdown";

/// An agent whose guard logs what becomes of it.
class AgentGuard : public AgentTest {
 protected:
  AgentGuard() : AgentTest(QOV_TEST_GUARD_AGENT) {}
};

TEST_F(AgentGuard, IsAtRestWhileTheEventLoopRuns) {
  agent.root().writeConfig(2);
  starts({"chatter"});
  ASSERT_TRUE(appliesTheDebugLevel()) << "the loop does not run";
  EXPECT_THAT(agent.log(), HasSubstr("guard of 450 seconds is made"));
  EXPECT_THAT(agent.log(), Not(HasSubstr(kGuardKnows)));
  stopsInOrder();
}

TEST_F(AgentGuard, SupervisesTheShutdownFromItsFirstStepToItsLast) {
  agent.root().writeConfig(0);
  starts({"plugged"});
  stopsInOrder();
  logsInOrder({"enter void CQOVapp::event_loop_done()...", "guard of 450 seconds is made",
               kGuardKnows, "enter void CQOV_Module_Loader::unload()...", kStopped, "guard is gone",
               "leave void CQOVapp::event_loop_done(): OK"});
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
