#include <filesystem>
#include <string>

#include "tests/process/agent_test.h"
#include "tests/support/files.h"

namespace qov::test {
namespace {

/// The example agent, run from a directory of its own: a dot in a directory above would leave its
/// process nameless.
class ExampleAgent : public ::testing::Test {
 protected:
  ExampleAgent() { std::filesystem::copy_file(QOV_DEVAGENT, agent.program()); }

  void failsToStart() {
    agent.start({"-n"});
    const Ending ending = agent.waitForEnd();
    EXPECT_EQ(ending.signal, 0);
    EXPECT_EQ(ending.exitStatus, 1);
  }

  TemporaryDirectory directory;
  AgentProcess agent{directory.file("devagent")};
};

TEST_F(ExampleAgent, WithoutAConfigurationEndsWithOneLineAndAFailure) {
  std::filesystem::remove(agent.root().cfgFile());
  failsToStart();
  EXPECT_EQ(agent.errors(),
            agent.program() + ": cannot start: CQOV_Exception: can't open proc config file\n");
}

TEST_F(ExampleAgent, WithoutModulesEndsWithOneLineAndAFailure) {
  failsToStart();
  EXPECT_EQ(agent.errors(), agent.program() + ": cannot start; the log says why\n");
}

}  // namespace
}  // namespace qov::test
