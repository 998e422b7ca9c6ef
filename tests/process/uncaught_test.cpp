#include "tests/process/agent_test.h"

namespace qov::test {
namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;

class AgentUncaught : public AgentTest {
 protected:
  void endsAfter(const char* thrown, const std::vector<std::string>& arguments) {
    agent.setEnvironment("QOV_TEST_THROW", thrown);
    starts({"throwing"}, arguments);
    agent.makeFile("go");
  }

  void isAborted() {
    const Ending ending = agent.waitForEnd();
    EXPECT_TRUE(ending.ended) << "hangs";
    EXPECT_EQ(ending.signal, SIGABRT) << agent.errors();
  }
};

TEST_F(AgentUncaught, MissingMemoryEndsTheAgentWithOneLine) {
  const std::string line = "Failed to go on in thread m49-own: Cannot allocate memory\n";
  endsAfter("memory", {"-n"});
  isAborted();
  EXPECT_EQ(agent.errors(), line);
  EXPECT_THAT(agent.log(), ContainsRegex("\\[65752\\]\\[ERR\\]\\[QOVPUBLIC\\]"));
  EXPECT_THAT(agent.log(), HasSubstr(line));
}

TEST_F(AgentUncaught, AnotherExceptionEndsTheAgentWithItsText) {
  endsAfter("the thread's own words", {"-n"});
  isAborted();
  EXPECT_EQ(agent.errors(), "Failed to go on in thread m49-own: the thread's own words\n");
}

TEST_F(AgentUncaught, MissingMemoryOfADaemonIsInItsLog) {
  endsAfter("memory", {});
  EXPECT_TRUE(agent.waitForLog("Failed to go on in thread m49-own: Cannot allocate memory\n"));
}

}  // namespace
}  // namespace qov::test
