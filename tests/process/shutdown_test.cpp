#include "tests/process/agent_test.h"

namespace qov::test {
namespace {

constexpr const char* kUnloaded = "Unload module qovp_plugged!";

class AgentShutdown : public AgentTest {};

TEST_F(AgentShutdown, ClosesThePluginsWhenTheModulesAreGone) {
  starts({"plugged"});
  stopsInOrder();
  logsInOrder({kStarted, kUnloaded, "Remove plugin name is qovp_bad!", kStopped});
}

TEST_F(AgentShutdown, WaitsForThreadsThatOnlyTheThreadManagerKnows) {
  agent.setEnvironment("QOV_TEST_MAIN", "threads");
  starts({"plugged"});
  agent.send(SIGINT);
  ASSERT_TRUE(agent.waitForLog("Remove plugin name is qovp_bad!"));
  agent.makeFile("go");
  hasEndedInOrder(agent.waitForEnd());
  logsInOrder({"a joinable thread ends", kStopped});
  logsInOrder({"a detached thread ends", kStopped});
}

}  // namespace
}  // namespace qov::test
