#include <unistd.h>

#include "tests/process/agent_test.h"

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;

namespace qov::test {
namespace {

constexpr const char* kNoLogConfiguration = "[QOV_GLOBAL]\nPROC_PID=7\n";

class AgentStart : public AgentTest {
 protected:
  /// Starts it with `arguments` and expects that it stays in the foreground and stops in order.
  void staysInTheForeground(const std::vector<std::string>& arguments) {
    starts({"state"}, arguments);
    EXPECT_EQ(agent.state("parent"), std::to_string(::getpid()));
    stopsInOrder();
  }

  /// Waits until it has told twice that it has started.
  bool startsAgain() {
    return waitUntil([&] {
      const std::string log = agent.log();
      return log.find(kStarted) != log.rfind(kStarted);
    });
  }

  void failsToStart() {
    agent.start({"-n"});
    hasExited(agent.waitForEnd(), 1);
  }
};

TEST_F(AgentStart, LogsItsProgramNameAtBothEnds) {
  starts({"state"});
  stopsInOrder();
  EXPECT_THAT(agent.log(), ContainsRegex("\\[INFO\\]\\[QOVPUBLIC\\]\\[init,[0-9]+\\]\\[\\]"
                                         "\\[qov_test_agent:[0-9]+\\] Successed to init " +
                                         agent.program() + "\n"));
  EXPECT_THAT(agent.log(),
              ContainsRegex("\\[INFO\\]\\[QOVPUBLIC\\]\\[event_loop_done,[0-9]+\\]\\[\\]"
                            "\\[qov_test_agent:[0-9]+\\] " +
                            agent.program() + " had shutdown.\n"));
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

TEST_F(AgentStart, HandlesTheFourSignalsFromItsEndOn) {
  starts({"state"});
  EXPECT_TRUE(agent.catches(SIGINT));
  EXPECT_TRUE(agent.catches(SIGPIPE));
  EXPECT_TRUE(agent.catches(SIGUSR1));
  EXPECT_TRUE(agent.catches(SIGTERM));
  EXPECT_FALSE(agent.catches(SIGHUP));
  stopsInOrder();
}

TEST_F(AgentStart, TracesInitOnlyOnceItHasSucceeded) {
  agent.root().writeConfig(0);
  starts({"state"});
  ASSERT_TRUE(agent.waitForLog("enter void CQOVapp::event_loop_done()..."));
  stopsInOrder();
  logsInOrder(
      {"leave bool CQOV_Module_Loader::load(): OK", "enter int CQOVapp::init(int, ACE_TCHAR**)...",
       kStarted, "leave int CQOVapp::init(int, ACE_TCHAR**): OK",
       "enter void CQOVapp::event_loop_done()...", "enter void CQOV_Module_Loader::unload()...",
       kStopped, "leave void CQOVapp::event_loop_done(): OK"});
}

TEST_F(AgentStart, WithoutModulesFails) {
  failsToStart();
  EXPECT_THAT(agent.log(), HasSubstr("Failed to load module, because module is empty!"));
  EXPECT_THAT(agent.log(), Not(HasSubstr("CQOVapp")));
  EXPECT_EQ(agent.errors(), "Failed to find a module: " + agent.root().confDirectory().string() +
                                "/: the directory has no file <module>.mod\n"
                                "Failed to load module, because module is empty!\n"
                                "the agent did not start\n");
}

TEST_F(AgentStart, WithAModuleThatDoesNotInitialiseFails) {
  agent.root().writeConfig(0);
  agent.useModules({"bad"});
  failsToStart();
  EXPECT_THAT(agent.log(), HasSubstr("Failed to init module qovp_bad!"));
  EXPECT_THAT(agent.log(), Not(HasSubstr("CQOVapp")));
  EXPECT_THAT(agent.log(), Not(HasSubstr(kStarted)));
}

TEST_F(AgentStart, ThatFailsUnloadsBeforeInitReturns) {
  // The log goes where main's own line goes.
  AgentRoot::write(agent.root().cfgFile(), kNoLogConfiguration);
  agent.useModules({"bad"});
  failsToStart();
  inOrder(agent.errors(),
          {"Failed to init module qovp_bad!", "enter void CQOV_Module_Loader::unload()...",
           "the agent did not start"});
}

TEST_F(AgentStart, WithoutALogConfigurationRunsAllTheSame) {
  AgentRoot::write(agent.root().cfgFile(), kNoLogConfiguration);
  agent.useModules({"state", "chatter"});
  agent.start({"-n"});
  ASSERT_TRUE(waitUntil([&] { return agent.errors().find(kStarted) != std::string::npos; }));
  agent.send(SIGINT);
  hasExited(agent.waitForEnd(), 0);
  EXPECT_THAT(agent.errors(), HasSubstr(kStopped));
}

TEST_F(AgentStart, StopsAlthoughAModulesThreadHasOwnedTheProcessReactor) {
  starts({"reactor_user"});
  stopsInOrder();
}

TEST_F(AgentStart, RunsTheProcessReactorOnWhenAModulesThreadHasRunItInBetween) {
  starts({"reactor_user"});
  EXPECT_TRUE(agent.waitForFile("called_again"));
  stopsInOrder();
}

TEST_F(AgentStart, RunsTwiceInOneProcess) {
  agent.setEnvironment("QOV_TEST_MAIN", "twice");
  agent.root().writeConfig(2);
  starts({"chatter"});
  agent.send(SIGINT);
  ASSERT_TRUE(startsAgain());
  EXPECT_TRUE(appliesTheDebugLevel());
  stopsInOrder();
  EXPECT_GT(agent.log().rfind(kStopped), agent.log().rfind(kStarted));
}

TEST_F(AgentStart, InitialisedTwiceAppliesTheLogLevelAndStops) {
  agent.setEnvironment("QOV_TEST_MAIN", "again");
  agent.root().writeConfig(2);
  starts({"chatter"});
  ASSERT_TRUE(startsAgain());
  EXPECT_TRUE(appliesTheDebugLevel());
  stopsInOrder();
}

TEST_F(AgentStart, StopsAfterASigusr1ThatComesWhenALaterFrameIsGone) {
  agent.setEnvironment("QOV_TEST_MAIN", "inner");
  starts({"state"});
  ASSERT_TRUE(agent.waitForFile("inner_is_gone"));
  agent.send(SIGUSR1);
  agent.send(SIGINT);
  hasExited(agent.waitForEnd(), 0);
}

}  // namespace
}  // namespace qov::test
