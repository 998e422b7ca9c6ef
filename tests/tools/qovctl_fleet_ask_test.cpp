#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>

#include "modules/common/message_payload.h"
#include "tests/support/spawn.h"
#include "tests/tools/qovctl_fleet_test.h"

namespace qov::test {
namespace {

using ::testing::MatchesRegex;
using ::testing::Not;

using Answer = FakeFleet::Answer;
using Request = FakeFleet::Request;

std::string answerWith(const std::string& text) {
  CQOV_MsgPackage message;
  message.head().type_ = QOVMsgHead::kResponse;
  message.addRecord(7).addString(1, text.c_str());
  return common::jsonOfMessage(message);
}

std::string agentOf(const Request& request) {
  return request.topic.substr(4, request.topic.find("/request/") - 4);
}

class QovctlFleetAsk : public QovctlFleet {
 protected:
  void haveOnline(const std::vector<std::string>& agents) {
    startBroker();
    for (const std::string& agent : agents) {
      this->agents().tell(agent, online());
    }
  }

  std::vector<std::string> askFor(const std::string& agents) {
    return {"fleet",     "ask", agents,  "20", "--opc", "1", "--broker", broker().address(),
            "--timeout", "5",   "--json"};
  }
  /// Until a time-out that begins now is over: that of an agent that says nothing.
  void outlastATimeout() {
    BeforeProgram before;
    before.writeTo(STDOUT_FILENO, "/dev/null");
    before.writeTo(STDERR_FILENO, "/dev/null");
    pid_t pid = spawn(QOVCTL, askFor("e/silent"), before);
    EXPECT_EQ(waitForEndOf(pid).exitStatus, 7);
  }
};

/// A change of its status stands before the agent's answer.
std::vector<Answer> answerBehindAStatus(const Request& request) {
  Answer status{online()};
  status.topic = "qov/" + agentOf(request) + "/status";
  return {status, {answerWith("fine")}};
}

TEST_F(QovctlFleetAsk, PrintsWhatOneAgentAnswers) {
  haveOnline({"edge-1/devagent", "edge-2/devagent"});
  agents().serve([](const Request&) { return std::vector<Answer>{{answerWith("eth0 is up")}}; });
  const QovctlRun asked = fleet("ask", {"edge-1/devagent", "20", "--opc", "0x1001", "--command",
                                        "7", "--cell", "1:String:eth0", "--cell", "2:Uint:5"});
  EXPECT_EQ(asked.status, 0) << asked.err;
  EXPECT_THAT(asked.out, MatchesRegex("agent            result    ms *answer\n"
                                      "edge-1/devagent  answered  [0-9.]+ +7 1:eth0 is up\n"
                                      "1 agent: 1 answered\n"));
  ASSERT_EQ(agents().requests().size(), 1U);
  const Request request = agents().requests()[0];
  EXPECT_EQ(request.topic, "qov/edge-1/devagent/request/20");
  EXPECT_EQ(request.contentType, "application/json");
  EXPECT_EQ(request.timeout, "60000");
  const auto message = common::messageOfJson(request.payload);
  EXPECT_EQ(message->head().type_, QOVMsgHead::kRequest);
  EXPECT_EQ(message->head().rmid_, 20);
  EXPECT_EQ(message->head().opc_, 0x1001U);
  ASSERT_EQ(message->count(), 1U);
  EXPECT_EQ((*message)[0].cmd(), 7U);
  EXPECT_EQ((*message)[0].find(1)->text(), "eth0");
  EXPECT_EQ((*message)[0].find(2)->number(), 5U);
}

TEST_F(QovctlFleetAsk, TellsOfEachAgentWhatCameOfIt) {
  haveOnline({"e/answers", "e/bytes", "e/garbage", "e/refuses", "e/silent", "f/another"});
  agents().tell("e/off", kOfflineDocument);
  agents().tell("e/unclear", "no document");
  agents().serve([](const Request& request) -> std::vector<Answer> {
    const std::string agent = agentOf(request);
    if (agent == "e/silent") {
      return {};
    }
    if (agent == "e/refuses") {
      return {{R"({"error":{"code":"denied","text":"module \u001b 20 is not on the list"}})"}};
    }
    if (agent == "e/garbage") {
      return {{"\x1b[2J"}};
    }
    CQOV_MsgPackage message;
    message.head().type_ = QOVMsgHead::kResponse;
    return {agent == "e/bytes"
                ? Answer{common::bytesOfMessage(message), "application/vnd.qov.message"}
                : Answer{answerWith("fine")}};
  });
  const QovctlRun asked = run({"fleet", "ask", "e/*", "20", "--opc", "1", "--broker",
                               broker().address(), "--timeout", "10"});
  EXPECT_EQ(asked.status, 7);
  EXPECT_EQ(asked.err, "qovctl: 4 of 7 agents have not answered\n");
  EXPECT_THAT(
      asked.out,
      MatchesRegex("agent      result      ms *answer\n"
                   "e/answers  answered    [0-9.]+ *7 1:fine\n"
                   "e/bytes    answered    [0-9.]+ *-\n"
                   "e/garbage  bad answer  [0-9.]+ *not JSON: [^\n\x1b]*\n"
                   "e/off      offline     - *since 2026-01-06T08:00:00Z\n"
                   "e/refuses  refused     [0-9.]+ *denied: module .x1b 20 is not on the list\n"
                   "e/silent   no answer   -\n"
                   "e/unclear  answered    [0-9.]+ *7 1:fine\n"
                   "7 agents: 3 answered, 1 refused, 1 bad answer, 1 no answer, 1 offline\n"));
}

TEST_F(QovctlFleetAsk, PrintsALineOfJsonForEachAgent) {
  haveOnline({"e/a"});
  agents().serve([](const Request&) { return std::vector<Answer>{{answerWith("fine")}}; });
  const QovctlRun asked = fleet("ask", {"e/a", "20", "--opc", "1", "--json"});
  EXPECT_EQ(asked.status, 0) << asked.err;
  const Json::Value printed = common::parseJson(asked.out);
  EXPECT_EQ(printed["agent"].asString(), "e/a");
  EXPECT_EQ(printed["result"].asString(), "answered");
  EXPECT_TRUE(printed["ms"].isNumeric());
  EXPECT_EQ(printed["message"]["records"][0]["cells"][0]["value"].asString(), "fine");
}

TEST_F(QovctlFleetAsk, AsksMoreAgentsThanItAsksAtOnce) {
  std::vector<std::string> names;
  for (int i = 0; i < 250; ++i) {
    names.push_back("edge-" + std::to_string(i) + "/devagent");
  }
  haveOnline(names);
  agents().serve([](const Request& request) {
    return std::vector<Answer>{{answerWith("I am " + agentOf(request))}};
  });
  const QovctlRun asked = fleet("ask", {"*/*", "20", "--opc", "1"});
  EXPECT_EQ(asked.status, 0) << asked.err;
  EXPECT_THAT(asked.out, EndsWith("\n250 agents: 250 answered\n"));
  for (const std::string& name : names) {
    EXPECT_THAT(asked.out, HasSubstr("I am " + name + "\n"));
  }
}

TEST_F(QovctlFleetAsk, TakesTheAnswerOfTheAgentThatItHasAsked) {
  haveOnline({"e/a", "e/b"});
  agents().serve([](const Request& request) -> std::vector<Answer> {
    Answer forged{answerWith("forged")};
    forged.correlation = "1000";
    Answer right{answerWith("right")};
    if (agentOf(request) == "e/a") {
      return {forged, right, right};
    }
    return {right};
  });
  const QovctlRun asked = fleet("ask", {"e/?", "20", "--opc", "1"});
  EXPECT_EQ(asked.status, 0) << asked.err;
  EXPECT_THAT(asked.out, Not(HasSubstr("forged")));
  EXPECT_THAT(asked.out, EndsWith("\n2 agents: 2 answered\n"));
}

TEST_F(QovctlFleetAsk, TakesAllThatHaveAnsweredWhileNobodyReadItsOutput) {
  haveOnline({"e/a", "e/b", "e/c", "e/silent"});
  agents().serve([](const Request& request) -> std::vector<Answer> {
    const std::string agent = agentOf(request);
    if (agent == "e/silent") {
      return {};
    }
    if (agent == "e/a") {
      CQOV_MsgPackage large;
      large.head().type_ = QOVMsgHead::kResponse;
      large.addRecord(7).addString(1, std::string(60000, 'x'));
      large.addRecord(7).addString(1, std::string(60000, 'x'));
      return {{common::jsonOfMessage(large)}};
    }
    return answerBehindAStatus(request);
  });
  const std::string pipe = workingDirectory() / "pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  const int reader = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  writesTo(pipe);
  start(askFor("e/?"));
  const int room = ::fcntl(reader, F_GETPIPE_SZ);
  EXPECT_TRUE(waitUntil([&] {
    int bytes = 0;
    return ::ioctl(reader, FIONREAD, &bytes) == 0 && bytes == room;
  }));
  outlastATimeout();
  ::fcntl(reader, F_SETFL, 0);
  std::string out;
  std::array<char, 4096> part{};
  for (ssize_t got = 0; (got = ::read(reader, part.data(), part.size())) > 0;) {
    out.append(part.data(), static_cast<std::size_t>(got));
  }
  ::close(reader);
  EXPECT_EQ(finish().status, 0);
  EXPECT_THAT(out, HasSubstr(R"({"agent":"e/b",)"));
  EXPECT_THAT(out, Not(HasSubstr("no answer")));
}

TEST_F(QovctlFleetAsk, TakesAllThatHaveAnsweredWhileItWasStopped) {
  haveOnline({"e/a", "e/b", "e/silent"});
  std::atomic<bool> isStopped{false};
  agents().serve([&](const Request& request) -> std::vector<Answer> {
    if (agentOf(request) == "e/silent") {
      return {};
    }
    EXPECT_TRUE(waitUntil([&] { return isStopped.load(); }));
    return answerBehindAStatus(request);
  });
  start(askFor("e/?"));
  EXPECT_TRUE(waitUntil([&] { return !agents().requests().empty(); }));
  send(SIGSTOP);
  isStopped = true;
  outlastATimeout();
  send(SIGCONT);
  const QovctlRun asked = finish();
  EXPECT_EQ(asked.status, 0) << asked.err;
  EXPECT_THAT(asked.out, Not(HasSubstr("no answer")));
}

TEST_F(QovctlFleetAsk, CutsLongAnswersOfSeveralAgents) {
  haveOnline({"e/a"});
  const std::string text = std::string(195, 'x') + "\u00e4\u00e4\u00e4\u00e4";
  agents().serve([text](const Request&) { return std::vector<Answer>{{answerWith(text)}}; });
  EXPECT_THAT(fleet("ask", {"e/a", "20", "--opc", "1"}).out, HasSubstr(text + "\n"));
  EXPECT_THAT(fleet("ask", {"e/*", "20", "--opc", "1"}).out,
              HasSubstr("7 1:" + std::string(195, 'x') + "...\n"));
}

TEST_F(QovctlFleetAsk, SaysThatNobodyTakesTheRequest) {
  haveOnline({"e/a"});
  const QovctlRun asked = fleet("ask", {"e/a", "20", "--opc", "1"});
  EXPECT_EQ(asked.status, 7);
  EXPECT_THAT(asked.out, HasSubstr("e/a    not delivered  -   No matching subscribers\n"));
}

TEST_F(QovctlFleetAsk, SaysThatTheBrokerRefusesTheRequest) {
  startBroker("acl_file " + file("acl", "topic read #\ntopic write qov/+/+/status\n") + "\n");
  agents().tell("e/a", online());
  const QovctlRun asked = fleet("ask", {"e/a", "20", "--opc", "1"});
  EXPECT_EQ(asked.status, 7);
  EXPECT_THAT(asked.out, HasSubstr("e/a    not delivered  -   Not authorized\n"));
}

TEST_F(QovctlFleetAsk, SaysThatItsBrokerIsGone) {
  haveOnline({"e/a", "e/silent"});
  agents().serve([](const Request& request) -> std::vector<Answer> {
    return agentOf(request) == "e/silent" ? std::vector<Answer>()
                                          : std::vector<Answer>{{answerWith("fine")}};
  });
  startFleet("ask", {"e/*", "20", "--opc", "1", "--json"});
  EXPECT_TRUE(waitForOutput("fine"));
  broker().stop(SIGKILL);
  const QovctlRun asked = finish();
  EXPECT_EQ(asked.status, 3);
  EXPECT_THAT(asked.err,
              StartsWith("qovctl: the connection to " + broker().address() + " is lost: "));
}

TEST_F(QovctlFleetAsk, SaysThatThereIsNoSuchAgent) {
  haveOnline({"e/a"});
  const QovctlRun asked = fleet("ask", {"e/b", "20", "--opc", "1"});
  EXPECT_EQ(asked.status, 3);
  EXPECT_EQ(asked.err, "qovctl: no agent e/b is known to the broker " + broker().address() + "\n");
  EXPECT_EQ(asked.out, "");
  EXPECT_EQ(fleet("ask", {"f/*", "20", "--opc", "1"}).status, 3);
}

}  // namespace
}  // namespace qov::test
