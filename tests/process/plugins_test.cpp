#include "tests/process/agent_test.h"
#include "tests/support/sanitizers.h"

namespace qov::test {
namespace {

/// How a plug-in is closed.
class AgentPlugins : public AgentTest, public ::testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(ClosedBy, AgentPlugins,
                         ::testing::Values("id", "name", "all", "registry"));

TEST_P(AgentPlugins, AreClosedWhileAStaticConstructorOpensOthers) {
  QOV_SKIP_IF_ACE_IS_REPORTED();
  agent.setEnvironment("QOV_TEST_CLOSING", GetParam());
  starts({"crossing"});
  stopsInOrder();
  // What was opened meanwhile stays open until the end of the registry.
  if (std::string("registry") == GetParam()) {
    logsInOrder({"Remove plugin name is qovp_plugin!", "Remove plugin name is qovp_other_plugin!",
                 "Unload module qovp_crossing!"});
  } else {
    logsInOrder({"Remove plugin name is qovp_plugin!", "Unload module qovp_crossing!",
                 "Remove plugin name is qovp_other_plugin!"});
  }
}

}  // namespace
}  // namespace qov::test
