#ifndef QOV_TESTS_PROCESS_AGENT_TEST_H
#define QOV_TESTS_PROCESS_AGENT_TEST_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include "tests/process/agent_process.h"

namespace qov::test {

constexpr const char* kStarted = "Successed to init /";
constexpr const char* kStopped = " had shutdown.";
/// What a SIGUSR1 that the event loop carries out makes of the log.
constexpr const char* kReloaded = "Log settings in force";
/// What the workers of the module "chatter" log all the time.
constexpr const char* kDebugLine = "chatter handles";
constexpr const char* kInfoLine = "chatter works";

/// A test of one agent, which runs in the foreground unless the test makes it do otherwise.
class AgentTest : public ::testing::Test {
 protected:
  AgentTest() = default;
  explicit AgentTest(const char* program) : agent(program) {}

  void starts(const std::vector<std::string>& modules,
              const std::vector<std::string>& arguments = {"-n"}) {
    agent.useModules(modules);
    agent.start(arguments);
    ASSERT_TRUE(agent.waitForLog(kStarted)) << agent.log() << agent.errors();
  }

  void stopsInOrder() {
    agent.send(SIGINT);
    hasEndedInOrder(agent.waitForEnd());
  }

  void hasEndedInOrder(const Ending& ending) {
    hasExited(ending, 0);
    EXPECT_THAT(agent.log(), ::testing::HasSubstr(kStopped));
  }

  void hasExited(const Ending& ending, int exitStatus) {
    EXPECT_TRUE(ending.ended) << "hangs";
    EXPECT_EQ(ending.signal, 0) << agent.errors();
    EXPECT_EQ(ending.exitStatus, exitStatus) << agent.errors() << agent.log();
  }

  /// Waits until `text` is logged behind what the log holds now.
  bool logsAnew(const std::string& text) {
    const std::size_t now = agent.log().size();
    return waitUntil([&] { return agent.log().find(text, now) != std::string::npos; });
  }

  void logsInOrder(const std::vector<std::string>& texts) { inOrder(agent.log(), texts); }

  /// The texts stand in `all`, each first one behind the first one of the text before.
  static void inOrder(const std::string& all, const std::vector<std::string>& texts) {
    std::size_t last = 0;
    for (const std::string& text : texts) {
      const std::size_t first = all.find(text);
      ASSERT_NE(first, std::string::npos) << text << " is not in\n" << all;
      EXPECT_GE(first, last) << text << " is too early in\n" << all;
      last = first;
    }
  }

  /// Whether a SIGUSR1 applies the log level of the file. The module "chatter" must work, its debug
  /// records not shown so far.
  bool appliesTheDebugLevel() {
    const std::size_t now = agent.log().size();
    agent.root().writeConfig(1);
    agent.send(SIGUSR1);
    return waitUntil([&] { return agent.log().find(kDebugLine, now) != std::string::npos; });
  }

  AgentProcess agent;
};

}  // namespace qov::test

#endif
