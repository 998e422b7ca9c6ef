#include <string>

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

/// exit() on a thread that does a leader's work cannot stop the module: its leader waits for that.
class AgentExitAtWork : public ::testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(On, AgentExitAtWork, ::testing::Values("leader", "sender", "fork"));

TEST_P(AgentExitAtWork, EndsTheProcessWithItsStatus) {
  if (QOV_TEST_ASAN && std::string(GetParam()) == "fork") {
    GTEST_SKIP() << "LeakSanitizer takes for leaks of the child what the parent's threads hold";
  }
  if (QOV_TEST_TSAN) {
    GTEST_SKIP() << "ACE takes down its reactor and locks while the module's threads still run";
  }
  constexpr int kRuns = 10;
  AgentProcess agent(QOV_TEST_EXITING_AGENT);
  agent.root().writeConfig(5);
  for (int run = 0; run < kRuns; ++run) {
    agent.start({GetParam()});
    const Ending ending = agent.waitForEnd();
    ASSERT_TRUE(ending.ended) << "hangs";
    ASSERT_EQ(ending.signal, 0) << "run " << run << agent.errors();
    ASSERT_EQ(ending.exitStatus, 3) << "run " << run << agent.errors();
  }
}

}  // namespace
}  // namespace qov::test
