#include <unistd.h>

#include "tests/process/agent_test.h"

using ::testing::HasSubstr;

namespace qov::test {
namespace {

class AgentSignalsAtTheEnd : public AgentTest {};

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

TEST_F(AgentSignalsAtTheEnd, NoneOfTheFourEndsAProcessThatHasEndedSomeOfItsModules) {
  starts({"chatter", "stuck"});
  agent.send(SIGINT);
  ASSERT_TRUE(agent.waitForLog("Unload module qovp_chatter!"));
  for (const int signum : {SIGPIPE, SIGUSR1, SIGINT, SIGTERM}) {
    agent.send(signum);
  }
  agent.makeFile("go");
  hasEndedInOrder(agent.waitForEnd());
}

TEST_F(AgentSignalsAtTheEnd, NoneOfTheFourEndsAProcessThatIsOnItsWayOut) {
  agent.setEnvironment("QOV_TEST_LAST_SIGNALS", "1");
  starts({"chatter"});
  stopsInOrder();
}

}  // namespace
}  // namespace qov::test
