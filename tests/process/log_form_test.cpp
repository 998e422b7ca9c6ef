#include <json/json.h>

#include <sstream>

#include "tests/process/agent_test.h"

// The optional keys of the log, in an agent whose module logs two records for each message.

namespace qov::test {
namespace {

class AgentLogForm : public AgentTest {
 protected:
  /// Debug and info records pass.
  void configure(const std::string& keys) {
    agent.root().writeConfig(1);
    const std::string file = agent.root().cfgFile().string();
    AgentRoot::write(file, readFile(file) + keys);
  }

  /// How often the log has a record of this message, what it counts included.
  static unsigned long told(const std::string& log, const std::string& message) {
    const std::string count = " within a second: " + message;
    unsigned long sum = 0;
    std::istringstream text(log);
    for (std::string line; std::getline(text, line);) {
      const std::string said = line.substr(std::min(line.rfind("] ") + 2, line.size()));
      if (said == message) {
        ++sum;
      } else if (said.find(count) != std::string::npos) {
        sum += std::stoul(said);
      }
    }
    return sum;
  }
};

TEST_F(AgentLogForm, CountsAFloodAndLosesNothingAtReloadsAndAtTheEnd) {
  configure("LogFold=1\n");
  starts({"chatter"});
  for (int reload = 0; reload < 3; ++reload) {
    ASSERT_TRUE(agent.waitForLog(" more of record 2 within a second: chatter works\n"));
    const std::size_t now = agent.log().size();
    agent.send(SIGUSR1);
    ASSERT_TRUE(
        waitUntil([&] { return agent.log().find("LogFold 1\n", now) != std::string::npos; }));
  }
  stopsInOrder();
  const std::string log = agent.log();
  const unsigned long handled = std::stoul(readFile(agent.root().path() / "handled"));
  EXPECT_GT(handled, 100U);
  EXPECT_EQ(told(log, kInfoLine), handled) << log;
  EXPECT_EQ(told(log, kDebugLine), handled) << log;
}

TEST_F(AgentLogForm, IsJsonFromTheFirstRecordToTheLast) {
  configure("LogJson=1\nLogFold=1\n");
  starts({"chatter"});
  ASSERT_TRUE(agent.waitForLog("\"id\":66050,"));
  agent.send(SIGUSR1);
  ASSERT_TRUE(logsAnew("\"message\":\"chatter works\"}\n"));
  stopsInOrder();
  std::istringstream text(agent.log());
  for (std::string line; std::getline(text, line);) {
    Json::Value record;
    std::string errors;
    std::istringstream in(line);
    EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), in, &record, &errors))
        << errors << line;
    EXPECT_TRUE(record.isMember("message")) << line;
  }
}

}  // namespace
}  // namespace qov::test
