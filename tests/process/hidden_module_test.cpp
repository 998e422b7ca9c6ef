#include "tests/process/agent_test.h"

namespace qov::test {
namespace {

/// A module whose own symbols are hidden sends to itself through the loader that it finds.
class AgentHiddenModule : public AgentTest {};

TEST_F(AgentHiddenModule, MeetsTheOneLoader) {
  starts({"hidden_chatter"});
  EXPECT_TRUE(agent.waitForLog(kInfoLine)) << agent.log();
  // Only while it runs: a module that is being stopped has left the loader's table.
  EXPECT_THAT(agent.log(), ::testing::Not(::testing::HasSubstr("is invalid!")));
  stopsInOrder();
}

}  // namespace
}  // namespace qov::test
