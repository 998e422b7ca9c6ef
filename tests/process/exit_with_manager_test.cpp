#include "tests/process/agent_test.h"
#include "tests/support/sanitizers.h"

namespace qov::test {
namespace {

TEST(AgentWithoutLoader, ReturnsFromMainWhileItsManagerStillRunsAndDoesNotCrash) {
  // One in twelve crashed when leaders outlived ACE's process reactor.
  constexpr int kRuns = QOV_TEST_ASAN || QOV_TEST_TSAN ? 20 : 100;
  AgentProcess agent(QOV_TEST_DIRECT_AGENT);
  agent.root().writeConfig(5);
  for (int run = 0; run < kRuns; ++run) {
    agent.start({});
    const Ending ending = agent.waitForEnd();
    ASSERT_TRUE(ending.ended) << "hangs";
    ASSERT_EQ(ending.signal, 0) << "run " << run << agent.errors();
    ASSERT_EQ(ending.exitStatus, 0) << "run " << run << agent.errors();
  }
}

}  // namespace
}  // namespace qov::test
