// An agent that writes its metrics.
#include <csignal>

#include "tests/modules/status/status_fixture.h"

namespace qov::test {
namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class AgentMetrics : public StatusTest {
 protected:
  std::filesystem::path file() { return agent.root().path() / "metrics" / "agent.prom"; }
  void configureFile(const std::string& more = "") {
    configure("MetricsFile=" + file().string() + "\n" + more);
  }
  void writesInto(const std::filesystem::path& folder) {
    std::filesystem::create_directories(folder);
  }
  bool fileHas(const std::string& text) {
    return waitUntil([&] { return readFile(file()).find(text) != std::string::npos; });
  }
};

TEST_F(AgentMetrics, AreAnsweredAsOpenMetrics) {
  startsWith({"chatter"});
  // The pool may stand a little later than the agent.
  const std::string workers =
      "\nqov_module_workers{process=\"qov_test_agent\",module=\"chatter\",module_id=\"1\"} 2\n";
  std::string text;
  EXPECT_TRUE(waitUntil([&] {
    text = client().ask({{"request", "metrics"}})["metrics"];
    return text.find(workers) != std::string::npos;
  })) << text;
  EXPECT_THAT(text, StartsWith("# HELP qov_agent "));
  EXPECT_THAT(text,
              HasSubstr("\nqov_status_accepted_connections_total{process=\"qov_test_agent\"} "));
  EXPECT_THAT(text, EndsWith("\n# EOF\n"));
}

TEST_F(AgentMetrics, AreWrittenAgainAndAgainAndRemovedAtTheStop) {
  writesInto(file().parent_path());
  configureFile("MetricsSeconds=1\n");
  startsWith({"chatter"});
  EXPECT_TRUE(fileHas("# EOF\n"));
  EXPECT_THAT(readFile(file()), HasSubstr("# TYPE qov_agent_info gauge\n"));
  const std::string first = readFile(file());
  EXPECT_TRUE(waitUntil([&] {
    const std::string now = readFile(file());
    return !now.empty() && now != first;
  }));
  stopsInOrder();
  EXPECT_FALSE(std::filesystem::exists(file()));
}

TEST_F(AgentMetrics, AnAgentRunsAlthoughItsFileCannotBeWritten) {
  configureFile("MetricsSeconds=1\n");
  startsWith();
  EXPECT_TRUE(agent.waitForLog("Failed to write the metrics: " + file().string() +
                               ": No such file or directory"));
  writesInto(file().parent_path());
  EXPECT_TRUE(agent.waitForLog("The metrics are written again: " + file().string()));
  EXPECT_TRUE(fileHas("# EOF\n"));
}

TEST_F(AgentMetrics, OfAKilledAgentStayUntilTheNextOneWrites) {
  writesInto(file().parent_path());
  configureFile();
  startsWith();
  ASSERT_TRUE(fileHas("# EOF\n"));
  const std::string pid = "pid=\"" + std::to_string(client().agent()) + "\"";
  agent.send(SIGKILL);
  agent.waitForEnd();
  EXPECT_THAT(readFile(file()), HasSubstr(pid));
  writeFile(file().string() + ".new", "half");
  const std::size_t before = agent.log().size();
  agent.start({"-n"});
  ASSERT_TRUE(waitUntil([&] { return agent.log().find(kStarted, before) != std::string::npos; }));
  EXPECT_TRUE(waitUntil([&] { return readFile(file()).find(pid) == std::string::npos; }));
  stopsInOrder();
  EXPECT_TRUE(std::filesystem::is_empty(file().parent_path()));
}

TEST_F(AgentMetrics, APeriodThatCannotBeMeantIsRefused) {
  configureFile("MetricsSeconds=0\n");
  failsToStart();
  EXPECT_THAT(agent.errors(), HasSubstr("[STATUS] MetricsSeconds=0: no number in range"));
}

TEST_F(AgentMetrics, ARelativePathIsRefused) {
  configure("MetricsFile=agent.prom\n");
  failsToStart();
  EXPECT_THAT(agent.errors(), HasSubstr("[STATUS] MetricsFile=agent.prom: no absolute path"));
}

}  // namespace
}  // namespace qov::test
