// qovctl fleet and real agents with the module qovmqtt, at a real broker.
#include <algorithm>
#include <csignal>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <utility>

#include "tests/process/agent_process.h"
#include "tests/tools/qovctl_fleet_test.h"

namespace qov::test {
namespace {

using ::testing::MatchesRegex;

constexpr const char* kAnswerer = "41";
/// Its operations.
constexpr const char* kRepeats = "1";
constexpr const char* kRefuses = "3";

/// The whole ones.
std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line) && !stream.eof();) {
    lines.push_back(line);
  }
  return lines;
}

/// Agents NODE/qov_test_agent. Their module "events" sends as many as it is told, and "answerer"
/// answers.
class QovctlFleetOfAgents : public QovctlFleet {
 protected:
  void startsAgent(const std::string& node, const std::string& allowed = "41:*") {
    auto agent = std::make_unique<AgentProcess>();
    AgentRoot& root = agent->root();
    AgentRoot::write(root.cfgFile(), readFile(root.cfgFile()) +
                                         "[MQTT]\nHost=127.0.0.1\nTls=0\nReconnectSeconds=1\n" +
                                         "Port=" + std::to_string(broker().port()) +
                                         "\nNode=" + node + "\nAllowRequests=" + allowed + "\n");
    root.addModule("qovmqtt");
    agent->useModules({"events", "answerer"});
    agent->start({"-n"});
    EXPECT_TRUE(agent->waitForLog("Successed to init /")) << agent->log() << agent->errors();
    processes_[node] = std::move(agent);
  }
  void startsAgain(const std::string& node) { processes_[node]->start({"-n"}); }
  void signals(const std::string& node, int signum) { processes_[node]->send(signum); }
  Ending ends(const std::string& node, int signum) {
    signals(node, signum);
    return processes_[node]->waitForEnd();
  }
  void sendsEvents(const std::string& node, int count) {
    AgentRoot::write(processes_[node]->root().path() / "wanted", std::to_string(count));
  }

  /// Until the list has such a line.
  bool isListed(const std::string& expression) {
    const std::regex wanted(expression);
    std::string listed;
    const bool found = waitUntil([&] {
      listed = fleet("list").out;
      const std::vector<std::string> lines = linesOf(listed);
      return std::any_of(lines.begin(), lines.end(),
                         [&](const std::string& line) { return std::regex_match(line, wanted); });
    });
    EXPECT_TRUE(found) << expression << " is not in\n" << listed;
    return found;
  }
  /// An agent that says so also gets requests: it asks the broker for them before.
  bool isOnline(const std::string& node) {
    return isListed(node +
                    "/qov_test_agent +online +[0-9TZ:-]+ +[0-9.]+ +40 events, 41 answerer, " +
                    "251 mqtt *");
  }
  bool isOffline(const std::string& node) {
    return isListed(node + "/qov_test_agent +offline +[0-9TZ:-]+ +- +- *");
  }

  /// Until the event with that serial number is printed.
  bool isSeen(const std::string& node, int serial) {
    const std::string start = node + "/qov_test_agent  module 40  opc 4097  ";
    const std::string end = "  1 1:" + std::to_string(serial);
    return waitUntil([&] {
      const std::vector<std::string> lines = linesOf(output());
      return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
        return ::testing::Value(line, ::testing::AllOf(StartsWith(start), EndsWith(end)));
      });
    });
  }

  QovctlRun asks(const std::string& agents, const std::string& operation,
                 const std::string& timeout = "60") {
    return run({"fleet", "ask", agents, kAnswerer, "--opc", operation, "--command", "9", "--cell",
                "1:Uint:17", "--broker", broker().address(), "--timeout", timeout});
  }

 private:
  std::map<std::string, std::unique_ptr<AgentProcess>> processes_;
};

TEST_F(QovctlFleetOfAgents, AreListedAsTheyComeAndGo) {
  startBroker();
  startsAgent("edge-1");
  startsAgent("edge-2");
  ASSERT_TRUE(isOnline("edge-1"));
  ASSERT_TRUE(isOnline("edge-2"));
  EXPECT_EQ(ends("edge-1", SIGINT).exitStatus, 0);
  EXPECT_TRUE(isOffline("edge-1"));
  EXPECT_EQ(ends("edge-2", SIGKILL).signal, SIGKILL);
  EXPECT_TRUE(isOffline("edge-2"));
  startsAgain("edge-2");
  EXPECT_TRUE(isOnline("edge-2"));
  EXPECT_TRUE(isOffline("edge-1"));
}

TEST_F(QovctlFleetOfAgents, AreWatchedWithoutRepeatsThoughOneIsKilled) {
  startBroker();
  startFleet("watch", {"edge-*/*"});
  ASSERT_TRUE(waitForSubscription());
  for (const char* const node : {"core", "edge-1", "edge-2"}) {
    startsAgent(node);
    sendsEvents(node, 20);
  }
  ASSERT_TRUE(isSeen("edge-1", 20)) << output();
  // What is on its way when it is killed goes out again, with the same number.
  sendsEvents("edge-1", 400);
  ASSERT_TRUE(isSeen("edge-1", 30)) << output();
  EXPECT_EQ(ends("edge-1", SIGKILL).signal, SIGKILL);
  startsAgain("edge-1");
  ASSERT_TRUE(isSeen("edge-1", 400)) << output();
  ASSERT_TRUE(isSeen("edge-2", 20)) << output();
  send(SIGINT);
  const QovctlRun watched = finish();
  EXPECT_EQ(watched.err, "");
  const std::regex event("(edge-[12]/qov_test_agent)  module 40  opc [0-9]+  number ([0-9]+)  .*");
  std::set<std::pair<std::string, std::string>> names;
  for (const std::string& line : linesOf(watched.out)) {
    std::smatch parts;
    ASSERT_TRUE(std::regex_match(line, parts, event)) << line;
    EXPECT_TRUE(names.emplace(parts[1], parts[2]).second) << "twice: " << line;
  }
}

TEST_F(QovctlFleetOfAgents, AnswerWhoAsksOneSomeOrAll) {
  startBroker();
  startsAgent("core", "");
  startsAgent("edge-1");
  startsAgent("edge-2");
  ASSERT_TRUE(isOnline("core") && isOnline("edge-1") && isOnline("edge-2"));
  const QovctlRun one = asks("edge-1/qov_test_agent", kRepeats);
  EXPECT_EQ(one.status, 0) << one.err;
  EXPECT_THAT(one.out, MatchesRegex("agent                  result    ms *answer\n"
                                    "edge-1/qov_test_agent  answered  [0-9.]+ +9 1:17\n"
                                    "1 agent: 1 answered\n"));
  const QovctlRun some = asks("edge-[12]/*", kRepeats);
  EXPECT_EQ(some.status, 0) << some.err;
  EXPECT_THAT(some.out, MatchesRegex("agent                  result    ms *answer\n"
                                     "edge-1/qov_test_agent  answered  [0-9.]+ +9 1:17\n"
                                     "edge-2/qov_test_agent  answered  [0-9.]+ +9 1:17\n"
                                     "2 agents: 2 answered\n"));
  const QovctlRun all = asks("*/*", kRepeats);
  EXPECT_EQ(all.status, 7);
  EXPECT_THAT(all.out, MatchesRegex("agent .*\n"
                                    "core/qov_test_agent +refused +[0-9.]+ +not-allowed: .*\n"
                                    "edge-1/qov_test_agent +answered +[0-9.]+ +9 1:17\n"
                                    "edge-2/qov_test_agent +answered +[0-9.]+ +9 1:17\n"
                                    "3 agents: 2 answered, 1 refused\n"));
  EXPECT_EQ(all.err, "qovctl: 1 of 3 agents have not answered\n");
  EXPECT_THAT(asks("edge-2/qov_test_agent", kRefuses).out,
              HasSubstr("refused: module 41 answered with result 5\n"));
}

TEST_F(QovctlFleetOfAgents, AreWaitedForEachByItself) {
  startBroker();
  for (const char* const node : {"gone", "still", "well"}) {
    startsAgent(node);
  }
  ASSERT_TRUE(isOnline("gone") && isOnline("still") && isOnline("well"));
  ends("gone", SIGKILL);
  ASSERT_TRUE(isOffline("gone"));
  signals("still", SIGSTOP);
  const QovctlRun asked = asks("*/*", kRepeats, "10");
  EXPECT_EQ(asked.status, 7);
  EXPECT_THAT(asked.out, MatchesRegex("agent .*\n"
                                      "gone/qov_test_agent +offline +- +since .*\n"
                                      "still/qov_test_agent +no answer +- *\n"
                                      "well/qov_test_agent +answered +[0-9.]+ +9 1:17\n"
                                      "3 agents: 1 answered, 1 no answer, 1 offline\n"));
  signals("still", SIGCONT);
  EXPECT_THAT(asks("still/*", kRepeats).out, HasSubstr("1 agent: 1 answered\n"));
}

}  // namespace
}  // namespace qov::test
