#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

#include "tests/process/agent_process.h"

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace qov::test {
namespace {

constexpr const char* kStarted = "Successed to init /";
constexpr const char* kStopped = " had shutdown.";

class AgentStart : public ::testing::Test {
 protected:
  /// Starts it with `arguments` and expects that it stays in the foreground and stops in order.
  void staysInTheForeground(const std::vector<std::string>& arguments) {
    agent.useModules({"state"});
    agent.start(arguments);
    ASSERT_TRUE(agent.waitForLog(kStarted)) << agent.log() << agent.errors();
    EXPECT_EQ(agent.state("parent"), std::to_string(::getpid()));
    agent.send(SIGINT);
    const Ending ending = agent.waitForEnd();
    EXPECT_EQ(ending.exitStatus, 0);
    EXPECT_THAT(agent.log(), HasSubstr(kStopped));
  }

  int exitStatusOfAFailedStart() {
    agent.start({"-n"});
    const Ending ending = agent.waitForEnd();
    EXPECT_TRUE(ending.ended);
    EXPECT_EQ(ending.signal, 0);
    return ending.exitStatus;
  }

  AgentProcess agent;
};

TEST_F(AgentStart, LogsItsProgramNameAtBothEnds) {
  agent.useModules({"state"});
  agent.start({"-n"});
  ASSERT_TRUE(agent.waitForLog(std::string("Successed to init ") + QOV_TEST_AGENT + "\n"));
  agent.send(SIGINT);
  EXPECT_EQ(agent.waitForEnd().exitStatus, 0);
  EXPECT_THAT(agent.log(), HasSubstr(std::string("] ") + QOV_TEST_AGENT + " had shutdown.\n"));
}

TEST_F(AgentStart, StaysInTheForegroundWithTheOptionAnywhere) {
  staysInTheForeground({"word", "-x", "-n", "last"});
}

TEST_F(AgentStart, StaysInTheForegroundWithTheOptionAfterTwoDashes) {
  staysInTheForeground({"--", "word", "-n"});
}

TEST_F(AgentStart, StaysInTheForegroundWithTheOptionAmongOthers) {
  staysInTheForeground({"-xny"});
}

TEST_F(AgentStart, StaysInTheForegroundUnderPosixlyCorrect) {
  agent.setEnvironment("POSIXLY_CORRECT", "1");
  staysInTheForeground({"word", "--", "word", "-n"});
}

TEST_F(AgentStart, IgnoresUnknownOptionsWithoutAMessage) {
  staysInTheForeground({"-n", "-q", "--unknown", "-", "", "word"});
  EXPECT_EQ(agent.errors(), "");
  EXPECT_EQ(agent.output(), "");
}

TEST_F(AgentStart, LoadsTheModulesWithTheSignalsBlocked) {
  staysInTheForeground({"-n"});
  EXPECT_EQ(agent.state("sigint_blocked"), "1");
  EXPECT_EQ(agent.state("sigusr1_blocked"), "1");
  EXPECT_EQ(agent.state("sigpipe_blocked"), "0");
}

TEST_F(AgentStart, TracesInitOnlyOnceItHasSucceeded) {
  agent.root().writeConfig(0);
  agent.useModules({"state"});
  agent.start({"-n"});
  ASSERT_TRUE(agent.waitForLog("enter void CQOVapp::event_loop_done()..."));
  agent.send(SIGINT);
  EXPECT_EQ(agent.waitForEnd().exitStatus, 0);
  const std::string log = agent.log();
  const std::size_t loaded = log.find("leave bool CQOV_Module_Loader::load(): OK");
  const std::size_t entered = log.find("enter int CQOVapp::init(int, ACE_TCHAR**)...");
  const std::size_t told = log.find(kStarted);
  const std::size_t left = log.find("leave int CQOVapp::init(int, ACE_TCHAR**): OK");
  EXPECT_LT(loaded, entered);
  EXPECT_LT(entered, told);
  EXPECT_LT(told, left);
  EXPECT_NE(left, std::string::npos);
  EXPECT_THAT(log, HasSubstr("leave void CQOVapp::event_loop_done(): OK"));
}

TEST_F(AgentStart, WithoutAConfigurationEndsWithOneLineAndAFailure) {
  std::filesystem::remove(agent.root().cfgFile());
  EXPECT_EQ(exitStatusOfAFailedStart(), 1);
  EXPECT_EQ(agent.errors(), "CQOV_Exception: can't open proc config file\n");
}

TEST_F(AgentStart, WithoutAProcessIdEndsWithOneLineAndAFailure) {
  AgentRoot::write(agent.root().cfgFile(), "[QOV_GLOBAL]\nNAME=x\n");
  EXPECT_EQ(exitStatusOfAFailedStart(), 1);
  EXPECT_EQ(agent.errors(), "CQOV_Exception: can't get PROC_PID from section name is PROC!\n");
}

TEST_F(AgentStart, WithoutModulesFails) {
  EXPECT_EQ(exitStatusOfAFailedStart(), 1);
  EXPECT_THAT(agent.log(), HasSubstr("Failed to load module, because module is empty!"));
  EXPECT_THAT(agent.log(), Not(HasSubstr("CQOVapp")));
  EXPECT_EQ(agent.errors(), "the agent did not start\n");
}

TEST_F(AgentStart, WithAModuleThatDoesNotInitialiseFails) {
  agent.useModules({"bad"});
  EXPECT_EQ(exitStatusOfAFailedStart(), 1);
  EXPECT_THAT(agent.log(), HasSubstr("Failed to init module qovp_bad!"));
  EXPECT_THAT(agent.log(), Not(HasSubstr(kStarted)));
}

TEST_F(AgentStart, WithoutALogConfigurationRunsAllTheSame) {
  AgentRoot::write(agent.root().cfgFile(), "[QOV_GLOBAL]\nPROC_PID=7\n");
  agent.useModules({"state", "chatter"});
  agent.start({"-n"});
  ASSERT_TRUE(waitUntil([&] { return agent.errors().find(kStarted) != std::string::npos; }));
  agent.send(SIGINT);
  EXPECT_EQ(agent.waitForEnd().exitStatus, 0);
  EXPECT_THAT(agent.errors(), HasSubstr(kStopped));
}

TEST_F(AgentStart, RunsTwiceInOneProcess) {
  agent.setEnvironment("QOV_TEST_MAIN", "twice");
  agent.useModules({"chatter"});
  agent.start({"-n"});
  ASSERT_TRUE(agent.waitForLog(kStarted));
  agent.send(SIGINT);
  ASSERT_TRUE(agent.waitForLog(kStopped));
  const std::size_t firstLife = agent.log().rfind(kStopped);
  ASSERT_TRUE(
      waitUntil([&] { return agent.log().find(kStarted, firstLife) != std::string::npos; }));
  agent.send(SIGUSR1);
  agent.send(SIGINT);
  EXPECT_EQ(agent.waitForEnd().exitStatus, 0);
  EXPECT_GT(agent.log().rfind(kStopped), firstLife);
}

}  // namespace
}  // namespace qov::test
