#include <csignal>
#include <filesystem>
#include <string>

#include "tests/process/agent_test.h"
#include "tests/support/files.h"

using ::testing::EndsWith;
using ::testing::StartsWith;

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

TEST_F(ExampleAgent, WithoutAConfigurationEndsWithTheReasonAndAFailure) {
  std::filesystem::remove(agent.root().cfgFile());
  failsToStart();
  EXPECT_THAT(agent.errors(), StartsWith("Failed to read the configuration: "));
  EXPECT_THAT(agent.errors(), EndsWith("\n" + agent.program() +
                                       ": cannot start: CQOV_Exception: can't open proc config "
                                       "file\n"));
}

TEST_F(ExampleAgent, WithoutModulesEndsWithTheReasonAndAFailure) {
  failsToStart();
  EXPECT_THAT(agent.errors(), StartsWith("Failed to find a module: "));
  EXPECT_THAT(agent.errors(),
              EndsWith("\n" + agent.program() + ": cannot start; the log says why\n"));
}

TEST_F(ExampleAgent, WhatAModuleThrowsLaterIsNoFailureToStart) {
  agent.setEnvironment("QOV_TEST_THROW", "the module's own words");
  agent.setEnvironment("QOV_TEST_THROW_LOOP", "1");
  agent.useModules({"throwing"});
  agent.start({"-n"});
  const Ending ending = agent.waitForEnd();
  EXPECT_EQ(ending.signal, SIGABRT);
  EXPECT_EQ(agent.errors(), "Failed to go on in thread devagent: the module's own words\n");
}

}  // namespace
}  // namespace qov::test
