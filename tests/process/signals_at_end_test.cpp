#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

#include "tests/process/agent_process.h"

using ::testing::HasSubstr;

namespace qov::test {
namespace {

constexpr const char* kStarted = "Successed to init /";
constexpr const char* kStopped = " had shutdown.";

class AgentSignalsAtTheEnd : public ::testing::Test {
 protected:
  void starts(const std::vector<std::string>& modules) {
    agent.useModules(modules);
    agent.start({"-n"});
    ASSERT_TRUE(agent.waitForLog(kStarted)) << agent.log() << agent.errors();
  }

  void stopsInOrder() {
    agent.send(SIGINT);
    const Ending ending = agent.waitForEnd();
    EXPECT_EQ(ending.signal, 0);
    EXPECT_EQ(ending.exitStatus, 0) << agent.errors();
    EXPECT_THAT(agent.log(), HasSubstr(kStopped));
  }

  AgentProcess agent;
};

TEST_F(AgentSignalsAtTheEnd, ABrokenPipeAtStandardOutputDoesNotTurnASuccessIntoADeath) {
  agent.setEnvironment("QOV_TEST_GREETING", "nobody reads this");
  agent.prepareChild([] {
    int ends[2];
    if (::pipe(ends) == 0) {
      ::dup2(ends[1], STDOUT_FILENO);
      ::close(ends[0]);
      ::close(ends[1]);
    }
  });
  starts({"state"});
  EXPECT_THAT(agent.state("stdout"), HasSubstr("pipe:"));
  stopsInOrder();
}

TEST_F(AgentSignalsAtTheEnd, NoneOfTheThreeEndsAProcessThatIsOnItsWayOut) {
  agent.setEnvironment("QOV_TEST_LAST_SIGNALS", "1");
  starts({"chatter"});
  stopsInOrder();
}

TEST_F(AgentSignalsAtTheEnd, AShutdownThatHangsIsEndedByItsGuard) {
  // 450 of its seconds.
  agent.setEnvironment("PXOS_GUARD_SECOND_MS", "1");
  starts({"stuck"});
  agent.send(SIGINT);
  EXPECT_EQ(agent.waitForEnd().signal, SIGABRT);
  EXPECT_THAT(agent.errors(), HasSubstr("has not ended within 450 s, aborting"));
}

}  // namespace
}  // namespace qov::test
