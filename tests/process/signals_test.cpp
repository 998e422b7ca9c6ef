#include <sys/resource.h>

#include "tests/process/agent_test.h"
#include "tests/support/sanitizers.h"

using ::testing::HasSubstr;
using ::testing::Not;

namespace qov::test {
namespace {

class AgentSignals : public AgentTest {};

TEST_F(AgentSignals, Sigusr1AppliesTheLogLevelOfTheFile) {
  agent.root().writeConfig(2);
  starts({"chatter"});
  ASSERT_TRUE(agent.waitForLog(kInfoLine));
  EXPECT_THAT(agent.log(), Not(HasSubstr(kDebugLine)));
  EXPECT_TRUE(appliesTheDebugLevel());

  agent.root().writeConfig(2);
  agent.send(SIGUSR1);
  // The levels change between two records, so some debug records may still come.
  EXPECT_TRUE(waitUntil([&] {
    const std::size_t now = agent.log().size();
    const bool logsOn = logsAnew(kInfoLine) && logsAnew(kInfoLine);
    return logsOn && agent.log().find(kDebugLine, now) == std::string::npos;
  }));
  stopsInOrder();
}

TEST_F(AgentSignals, Sigusr1ThousandsOfTimesNeitherStopsNorHangsTheProcess) {
  starts({"chatter"});
  for (int i = 0; i < 3000; ++i) {
    agent.send(SIGUSR1);
  }
  EXPECT_TRUE(logsAnew(kInfoLine));
  agent.root().writeConfig(2);
  agent.send(SIGUSR1);
  stopsInOrder();
}

TEST_F(AgentSignals, TheLastOfManySigusr1IsNotLost) {
  agent.root().writeConfig(2);
  starts({"chatter"});
  for (int i = 0; i < 200; ++i) {
    agent.send(SIGUSR1);
  }
  agent.root().writeConfig(1);
  agent.send(SIGUSR1);
  EXPECT_TRUE(agent.waitForLog(kDebugLine));
  stopsInOrder();
}

TEST_F(AgentSignals, SigintIsCarriedOutAmidstSigusr1) {
  starts({"chatter"});
  for (int i = 0; i < 500; ++i) {
    agent.send(SIGUSR1);
  }
  agent.send(SIGINT);
  for (int i = 0; i < 500; ++i) {
    agent.send(SIGUSR1);
  }
  stopsInOrder();
}

TEST_F(AgentSignals, ABrokenPipeEndsNeitherStartNorModules) {
  starts({"broken_pipe"});
  agent.makeFile("go");
  EXPECT_TRUE(agent.waitForFile("survived"));
  agent.send(SIGPIPE);
  stopsInOrder();
}

TEST_F(AgentSignals, Sigusr1AppliesTheLogLevelThoughTheStarterHasBlockedIt) {
  agent.prepareChild([] {
    sigset_t one;
    sigemptyset(&one);
    sigaddset(&one, SIGUSR1);
    ::sigprocmask(SIG_BLOCK, &one, nullptr);
  });
  agent.root().writeConfig(2);
  starts({"chatter"});
  EXPECT_TRUE(appliesTheDebugLevel());
  stopsInOrder();
}

void lowerTheLimitOfDescriptors() {
  const rlimit limit{128, 128};
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

TEST_F(AgentSignals, SigintStopsAProcessWhoseModulesHaveTakenAllDescriptors) {
  if (QOV_TEST_ASAN) {
    GTEST_SKIP() << "UndefinedBehaviorSanitizer asks through a pipe whether an object is there";
  }
  agent.prepareChild(lowerTheLimitOfDescriptors);
  starts({"hoarder"});
  stopsInOrder();
}

TEST_F(AgentSignals, SigintBeforeTheLoopStopsAProcessWhoseModulesHaveTakenAllDescriptors) {
  if (QOV_TEST_ASAN) {
    GTEST_SKIP() << "UndefinedBehaviorSanitizer asks through a pipe whether an object is there";
  }
  agent.prepareChild(lowerTheLimitOfDescriptors);
  agent.setEnvironment("QOV_TEST_WAIT", "1");
  agent.useModules({"hoarder"});
  agent.start({"-n"});
  ASSERT_TRUE(agent.waitForFile("ready"));
  agent.send(SIGINT);
  agent.makeFile("go");
  hasEndedInOrder(agent.waitForEnd());
}

TEST_F(AgentSignals, ReloadThatFailsLeavesTheLogAsItIsAndSaysWhy) {
  starts({"chatter"});
  AgentRoot::write(agent.root().cfgFile(), "[QOV_GLOBAL]\nPROC_PID=7\n");
  agent.send(SIGUSR1);
  EXPECT_TRUE(agent.waitForLog("Failed to configure the log: " + agent.root().cfgFile().string() +
                               ": LOG_CFG: there is no such section; the log stays as it is\n"));
  EXPECT_TRUE(logsAnew(kInfoLine));
  stopsInOrder();
}

TEST_F(AgentSignals, ReloadSaysWhatIsInForce) {
  starts({"state"});
  agent.root().writeConfig(2);
  agent.send(SIGUSR1);
  EXPECT_TRUE(agent.waitForLog("Log settings in force: LogLevel 2, file " +
                               agent.root().logFile().string() + ", LogFileMaxSize 10240 KB, "));
  stopsInOrder();
}

}  // namespace
}  // namespace qov::test
