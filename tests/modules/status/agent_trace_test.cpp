// qovctl records the messages of an agent.
#include <atomic>
#include <string>
#include <utility>

#include "tests/modules/status/scripted_agent.h"
#include "tests/modules/status/status_fixture.h"
#include "tests/modules/status/trace_file.h"
#include "tests/tools/qovctl_fixture.h"

namespace qov::test {
namespace {

using nlohmann::json;

/// What an agent answers that has lost so many steps, and tells of none.
std::string answerOfALosingAgent(const std::string& request, int lost) {
  json answer{{"process", "losing"}, {"pid", 1}, {"modules", json::array()}, {"time", 1}};
  if (request.find("trace-read") != std::string::npos) {
    answer["fields"] = {"time", "thread", "step", "module", "reason",
                        "type", "from",   "to",   "serial", "operation"};
    answer["steps"] = json::array();
    answer["lost"] = lost;
  }
  return answer.dump();
}

class AgentTrace : public StatusTest {
 protected:
  std::vector<std::string> words(const std::vector<std::string>& more) {
    std::vector<std::string> all{"agent", "trace", "--socket", socket(), "--timeout", "60"};
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }
  QovctlRun run(const std::vector<std::string>& more) { return qovctl.run(words(more)); }
  std::string output() { return agent.root().path() / "trace.json"; }
  /// How many files there are beside the trace, if one is written.
  std::size_t filesOfTrace() {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(agent.root().path())) {
      count += entry.path().filename().string().rfind("trace.json", 0) == 0 ? 1 : 0;
    }
    return count;
  }
  bool isOn() { return status()["trace"]; }
  /// Starts a trace that does not end by itself, and waits until it is on.
  bool beginsALongOne(const std::vector<std::string>& more = {}) {
    std::vector<std::string> all{"--seconds", "3600", "-o", output()};
    all.insert(all.end(), more.begin(), more.end());
    qovctl.start(words(all));
    return waitUntil([this] { return isOn(); });
  }

  /// Ends the trace with a signal when the agent has gone so many times through all that the
  /// modules "tracing" and "traced" do.
  QovctlRun endsAfter(int rounds) {
    const json before = status()["modules"];
    EXPECT_TRUE(waitUntil([&] {
      const json now = status()["modules"];
      return now[0]["timedOut"] >= before[0]["timedOut"].get<int>() + rounds &&
             now[1]["dropped"]["noReceiver"] >=
                 before[1]["dropped"]["noReceiver"].get<int>() + rounds;
    }));
    qovctl.send(SIGINT);
    return qovctl.finish();
  }

  Qovctl qovctl;
};

TEST_F(AgentTrace, AFileHasTheWayOfMessagesTimeOutsAndDrops) {
  startsWith({"tracing", "traced"});
  ASSERT_TRUE(beginsALongOne());
  const QovctlRun ran = endsAfter(4);
  ASSERT_EQ(ran.status, 0) << ran.err;
  EXPECT_EQ(ran.out, "");
  EXPECT_EQ(filesOfTrace(), 1U);
  const TraceFile file(readFile(output()));
  EXPECT_EQ(file.about()["process"], "qov_test_agent");
  EXPECT_EQ(file.about()["lost"], 0);
  EXPECT_GT(file.about()["steps"], 10);
  const std::vector<json> handlers = file.events("X", "61 tracing: 700");
  ASSERT_FALSE(handlers.empty());
  EXPECT_EQ(file.threadOf(handlers[0]).rfind("m61-worker-", 0), 0U);
  const std::vector<json> waits = file.events("X", "ask 61 tracing: 703");
  ASSERT_GE(waits.size(), 2U);
  EXPECT_EQ(file.threadOf(waits[1]), "asker");
  EXPECT_FALSE(file.events("X", "ask 60 tracing: 701").empty());
  EXPECT_FALSE(file.events("i", "time-out: 703").empty());
  EXPECT_FALSE(file.events("i", "drop, noReceiver: 702").empty());
  // From the second handler on the whole way is in the trace.
  ASSERT_GE(handlers.size(), 3U);
  const json& message = handlers[1]["args"];
  const std::vector<json> flow = file.flow(700, message["sn"]);
  ASSERT_GE(flow.size(), 6U);
  EXPECT_EQ(file.threadOf(flow.front()), "asker");
  EXPECT_EQ(file.threadOf(flow.back()), "asker");
}

TEST_F(AgentTrace, ADiagramShowsARequestWithWhatItCaused) {
  startsWith({"tracing", "traced"});
  ASSERT_TRUE(beginsALongOne({"--module", "61", "--text"}));
  const QovctlRun ran = endsAfter(2);
  ASSERT_EQ(ran.status, 0) << ran.err;
  inOrder(ran.out,
          {"sequenceDiagram\n", "title: request 700, SN 0x", "participant P1 as asker",
           "P1->>P2: request 700, +", "handle 700, +", "handle 701, +", "answer to 700, +"});
}

TEST_F(AgentTrace, AnInterruptEndsItAndTheFileIsWritten) {
  startsWith({"tracing", "traced"});
  ASSERT_TRUE(beginsALongOne());
  qovctl.send(SIGINT);
  const QovctlRun ran = qovctl.finish();
  EXPECT_EQ(ran.status, 0) << ran.err;
  EXPECT_EQ(TraceFile(readFile(output())).about()["process"], "qov_test_agent");
}

TEST_F(AgentTrace, ATerminalThatGoesEndsItAndTheFileIsWritten) {
  startsWith({"tracing", "traced"});
  ASSERT_TRUE(beginsALongOne());
  qovctl.send(SIGHUP);
  const QovctlRun ran = qovctl.finish();
  EXPECT_EQ(ran.status, 0) << ran.err;
  EXPECT_EQ(filesOfTrace(), 1U);
}

TEST_F(AgentTrace, ASecondInterruptCostsNotTheFile) {
  startsWith({"tracing", "traced"});
  ASSERT_TRUE(beginsALongOne());
  // Both are there when it goes on.
  for (const int signum : {SIGSTOP, SIGINT, SIGTERM, SIGCONT}) {
    qovctl.send(signum);
  }
  const QovctlRun ran = qovctl.finish();
  EXPECT_EQ(ran.status, 0) << ran.err;
  EXPECT_EQ(filesOfTrace(), 1U);
  EXPECT_EQ(TraceFile(readFile(output())).about()["process"], "qov_test_agent");
}

TEST_F(AgentTrace, TellsHowManyStepsWereLost) {
  const std::string path = agent.root().path() / "losing.sock";
  int lost = 4711;
  const ScriptedAgent losing(path, [&](const std::string& request) {
    const bool isRead = request.find("trace-read") != std::string::npos;
    return answerOfALosingAgent(request, isRead ? std::exchange(lost, 0) : 0);
  });
  const QovctlRun ran = qovctl.run({"agent", "--socket", path, "--timeout", "60", "trace",
                                    "--seconds", "0.001", "-o", output()});
  EXPECT_EQ(ran.status, 0) << ran.err;
  EXPECT_THAT(ran.err, HasSubstr("4711 steps of messages were lost: they came faster than"));
  EXPECT_EQ(TraceFile(readFile(output())).about()["lost"], 4711);
}

TEST_F(AgentTrace, AnInterruptEndsItAlsoWhereTheAgentDoesNotAnswer) {
  const std::string path = agent.root().path() / "silent.sock";
  std::atomic<bool> isRead{false};
  ScriptedAgent silent(path, [&](const std::string& request) {
    isRead = isRead || request.find("trace-read") != std::string::npos;
    return answerOfALosingAgent(request, 0);
  });
  qovctl.start({"agent", "--socket", path, "--timeout", "3600", "trace", "--seconds", "3600", "-o",
                output()});
  ASSERT_TRUE(waitUntil([&] { return isRead.load(); }));
  silent.standStill();
  ASSERT_TRUE(waitUntil([&] { return silent.isAskedInVain(); }));
  qovctl.send(SIGINT);
  const QovctlRun ran = qovctl.finish();
  EXPECT_EQ(ran.status, 4);
  EXPECT_EQ(ran.err, "qovctl: " + path + ": no answer in time after the interrupt\n");
  EXPECT_EQ(TraceFile(readFile(output())).about()["process"], "losing");
}

TEST_F(AgentTrace, AnInterruptBeforeItIsOnLeavesNoFile) {
  const std::string path = agent.root().path() / "silent.sock";
  ScriptedAgent silent(path, [](const std::string&) { return ""; });
  silent.standStill();
  qovctl.start({"agent", "--socket", path, "--timeout", "3600", "trace", "-o", output()});
  ASSERT_TRUE(waitUntil([&] { return silent.isAskedInVain(); }));
  qovctl.send(SIGINT);
  EXPECT_EQ(qovctl.finish().status, 4);
  EXPECT_EQ(filesOfTrace(), 0U);
}

TEST_F(AgentTrace, AKilledOneLeavesTheTraceToOthers) {
  startsWith({"tracing", "traced"});
  ASSERT_TRUE(beginsALongOne());
  const QovctlRun second = Qovctl().run(words({"--text"}));
  EXPECT_EQ(second.status, 5);
  EXPECT_THAT(second.err, HasSubstr("the trace is on already, for this client or another one"));
  qovctl.send(SIGKILL);
  qovctl.finish();
  EXPECT_FALSE(std::filesystem::exists(output()));
  EXPECT_TRUE(waitUntil([this] { return !isOn(); }));
}

TEST_F(AgentTrace, WhatIsThereIsWrittenWhenTheAgentEnds) {
  startsWith({"tracing", "traced"});
  ASSERT_TRUE(beginsALongOne());
  stopsInOrder();
  const QovctlRun ran = qovctl.finish();
  EXPECT_EQ(ran.status, 3);
  EXPECT_THAT(ran.err, HasSubstr("the agent has closed the connection"));
  EXPECT_EQ(TraceFile(readFile(output())).about()["process"], "qov_test_agent");
}

TEST_F(AgentTrace, TheAgentsEndIsToldAlsoWithoutADiagram) {
  startsWith();
  ASSERT_TRUE(beginsALongOne({"--module", "255", "--text"}));
  stopsInOrder();
  const QovctlRun ran = qovctl.finish();
  EXPECT_EQ(ran.status, 3);
  EXPECT_EQ(ran.out, "");
  EXPECT_THAT(ran.err, HasSubstr("the agent has closed the connection"));
}

TEST_F(AgentTrace, SaysWhatCannotBeDone) {
  startsWith();
  const QovctlRun nothing = run({"--seconds", "0.01"});
  EXPECT_EQ(nothing.status, 2);
  EXPECT_THAT(nothing.err, HasSubstr("-o FILE or --text is required"));
  const QovctlRun asJson = run({"--seconds", "0.01", "--text", "--json"});
  EXPECT_EQ(asJson.status, 2);
  EXPECT_THAT(asJson.err, HasSubstr("--json is not for trace"));
  EXPECT_EQ(run({"--sn", "1"}).status, 2);
  EXPECT_EQ(run({"--module", "256", "--text"}).status, 2);
  EXPECT_EQ(run({"--seconds", "0", "--text"}).status, 2);
  const QovctlRun nowhere = run({"-o", "/no/where/trace.json"});
  EXPECT_EQ(nowhere.status, 1);
  EXPECT_THAT(nowhere.err, HasSubstr("/no/where/trace.json: cannot be written: No such file"));
  const QovctlRun folder = run({"-o", agent.root().path()});
  EXPECT_EQ(folder.status, 1);
  EXPECT_THAT(folder.err, HasSubstr("is no regular file"));
  const QovctlRun idle = run({"--seconds", "0.01", "--module", "255", "--text"});
  EXPECT_EQ(idle.status, 1);
  EXPECT_THAT(idle.err, HasSubstr("no answered request is in the trace"));
}

}  // namespace
}  // namespace qov::test
