#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>

#include "tests/link/scripted_peer.h"
#include "tests/support/spawn.h"
#include "tests/tools/qovctl_fleet_test.h"

namespace qov::test {
namespace {

using ::testing::Not;

using QovctlFleetList = QovctlFleet;

TEST_F(QovctlFleetList, ShowsWhoIsAliveAndSinceWhen) {
  startBroker();
  agents().tell("edge-2/devagent", kOfflineDocument);
  agents().tell("edge-1/devagent", online(R"({"id":20,"name":"inventory"},{"id":21,"name":"up"})"));
  const QovctlRun listed = fleet("list");
  EXPECT_EQ(listed.status, 0) << listed.err;
  EXPECT_EQ(listed.err, "");
  EXPECT_EQ(listed.out,
            "agent            state    since                 version  modules\n"
            "edge-1/devagent  online   2026-01-05T07:03:09Z  1.0.0    20 inventory, 21 up\n"
            "edge-2/devagent  offline  2026-01-06T08:00:00Z  -        -\n");
}

TEST_F(QovctlFleetList, PrintsALineOfJsonForEachAgent) {
  startBroker();
  agents().tell("edge-2/devagent", kOfflineDocument);
  agents().tell("edge-1/devagent", online());
  const QovctlRun listed = fleet("list", {"--json"});
  EXPECT_EQ(listed.status, 0) << listed.err;
  EXPECT_EQ(listed.out, R"({"agent":"edge-1/devagent","modules":[{"id":20,"name":"inventory"}],)"
                        R"("since":"2026-01-05T07:03:09Z","state":"online","version":"1.0.0"})"
                        "\n"
                        R"({"agent":"edge-2/devagent","modules":[],)"
                        R"("since":"2026-01-06T08:00:00Z","state":"offline","version":""})"
                        "\n");
}

TEST_F(QovctlFleetList, ShowsTheAgentsThatThePatternNames) {
  startBroker();
  for (const char* const agent : {"edge-1/a", "edge-2/a", "edge-2/b", "core/a"}) {
    agents().tell(agent, online());
  }
  EXPECT_EQ(fleet("list", {"edge-2/b"}).out,
            "agent     state   since                 version  modules\n"
            "edge-2/b  online  2026-01-05T07:03:09Z  1.0.0    20 inventory\n");
  const std::string some = fleet("list", {"edge-?/a"}).out;
  EXPECT_THAT(some, HasSubstr("edge-1/a  "));
  EXPECT_THAT(some, HasSubstr("edge-2/a  "));
  EXPECT_THAT(some, Not(HasSubstr("edge-2/b")));
  EXPECT_THAT(some, Not(HasSubstr("core/a")));
  const QovctlRun none = fleet("list", {"nobody/*"});
  EXPECT_EQ(none.status, 0);
  EXPECT_EQ(none.out, "agent  state  since  version  modules\n");
}

TEST_F(QovctlFleetList, SaysThatThereIsNoSuchAgent) {
  startBroker();
  agents().tell("edge-1/a", online());
  for (const std::vector<std::string>& options :
       std::vector<std::vector<std::string>>{{"edge-2/a"}, {"edge-2/a", "--json"}}) {
    const QovctlRun listed = fleet("list", options);
    EXPECT_EQ(listed.status, 3);
    EXPECT_EQ(listed.err,
              "qovctl: no agent edge-2/a is known to the broker " + broker().address() + "\n");
    EXPECT_EQ(listed.out, "");
  }
}

TEST_F(QovctlFleetList, KnowsMoreAgentsThanABrokerQueuesForAClient) {
  startBroker("max_queued_messages 10\n");
  constexpr int kAgents = 300;
  for (int i = 0; i < kAgents; ++i) {
    agents().tell("edge-" + std::to_string(i) + "/devagent", online());
  }
  const QovctlRun listed = fleet("list");
  EXPECT_EQ(std::count(listed.out.begin(), listed.out.end(), '\n'), kAgents + 1);
}

TEST_F(QovctlFleetList, SaysWhichDocumentsAreNone) {
  startBroker();
  const std::vector<std::pair<std::string, std::string>> documents{
      {"a/text", "hello"},
      {"a/array", "[]"},
      {"a/number", R"({"online":1})"},
      {"a/modules", R"({"online":true,"modules":{}})"},
      {"a/module", R"({"online":true,"modules":[1]})"},
      {"a/id", R"({"online":true,"modules":[{"id":256}]})"},
      {"a/deep", std::string(100000, '[')},
      {"a/bytes", "{\"online\":true,\"version\":\"\xFF\"}"},
      {"a/large", R"({"online":true,"version":")" + std::string(300000, 'x') + "\"}"}};
  for (const auto& [agent, document] : documents) {
    agents().tell(agent, document);
  }
  agents().tell("b/good", online());
  const QovctlRun listed = fleet("list");
  EXPECT_EQ(listed.status, 6);
  EXPECT_THAT(listed.out, HasSubstr("b/good     online   "));
  for (const auto& [agent, document] : documents) {
    EXPECT_THAT(listed.out, HasSubstr(agent + " "));
    EXPECT_THAT(listed.err, HasSubstr("qovctl: " + agent + ": bad status document: "));
  }
  EXPECT_THAT(listed.err, HasSubstr("\nqovctl: 9 of 10 status documents are bad\n"));
  EXPECT_LT(listed.err.size(), 3000U);
}

TEST_F(QovctlFleetList, CutsLongValues) {
  startBroker();
  const std::string version(36, 'v');
  agents().tell("a/b", R"({"online":true,"version":")" + version + "1234\"}");
  agents().tell("a/c", R"({"online":true,"version":")" + version + "12345\"}");
  agents().tell("a/d", R"({"online":true,"version":")" + version + "123\u00e4\"}");
  agents().tell(std::string(101, 'n') + "/b", "{}");
  const std::string out = fleet("list").out;
  EXPECT_THAT(out, HasSubstr(" " + version + "1234  "));
  EXPECT_THAT(out, HasSubstr(" " + version + "1234... "));
  EXPECT_THAT(out, HasSubstr(" " + version + "123... "));
  EXPECT_THAT(out, HasSubstr("\n" + std::string(100, 'n') + "...  unknown "));
}

TEST_F(QovctlFleetList, GetsNoMessageOfMoreThan4Mib) {
  startBroker();
  agents().tell("a/fits", std::string((std::size_t{4} << 20U) - 100, ' '));
  agents().tell("a/longer", std::string(std::size_t{4} << 20U, ' '));
  const QovctlRun listed = fleet("list");
  EXPECT_THAT(listed.err, HasSubstr("a/fits: bad status document: 4194204 bytes; 262144 at most"));
  EXPECT_THAT(listed.out, Not(HasSubstr("a/longer")));
}

TEST_F(QovctlFleetList, ShowsNoControlCharacters) {
  startBroker();
  agents().tell("edge/a", R"({"online":true,"version":"\u001b[2J","since":"\u202enow","modules":)"
                          R"([{"id":1,"name":"\u0007\u009b"}]})");
  const QovctlRun listed = fleet("list");
  EXPECT_EQ(listed.status, 0) << listed.err;
  EXPECT_THAT(listed.out, HasSubstr("\\xe2\\x80\\xaenow  \\x1b[2J  1 \\x07\\xc2\\x9b\n"));
  const QovctlRun json = fleet("list", {"--json"});
  EXPECT_THAT(json.out, HasSubstr(R"("version":"\u001b[2J")"));
  EXPECT_THAT(json.out, HasSubstr(R"(\u202enow)"));
}

TEST_F(QovctlFleetList, EndsQuietlyWhenNobodyReadsIt) {
  // The fake agents' library ignores it, which qovctl would inherit.
  std::signal(SIGPIPE, SIG_DFL);
  const MqttBroker broker;
  const std::string pipe = file("pipe", "") + ".fifo";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  const int reader = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  writesTo(pipe);
  start({"fleet", "list", "--broker", broker.address()});
  ::close(reader);
  const QovctlRun ended = finish();
  EXPECT_EQ(ended.signal, SIGPIPE);
  EXPECT_EQ(ended.err, "");
}

TEST_F(QovctlFleetList, TakesTheBrokerOfTheEnvironment) {
  startBroker();
  sets({"QOVCTL_BROKER=" + broker().address()});
  const QovctlRun listed = run({"fleet", "list", "nobody/*"});
  EXPECT_EQ(listed.status, 0) << listed.err;
  sets({"QOVCTL_BROKER=host:0"});
  EXPECT_EQ(run({"fleet", "list"}).err,
            "qovctl: QOVCTL_BROKER: \"host:0\" is not host[:port], with a port of 1 to 65535\n");
}

TEST_F(QovctlFleetList, ShowsItsUserAndPassword) {
  const std::string password = file("password", "se cret\n");
  const TemporaryDirectory directory;
  BeforeProgram before;
  pid_t pid = spawn("/usr/bin/mosquitto_passwd",
                    {"-c", "-b", directory.file("users"), "operator", "se cret"}, before);
  ASSERT_EQ(waitForEndOf(pid).exitStatus, 0);
  const MqttBroker broker(MqttBroker::Security::kNone,
                          "allow_anonymous false\npassword_file " + directory.file("users") + "\n");
  const std::vector<std::string> words{"fleet", "list", "--broker", broker.address()};
  const auto with = [&](std::vector<std::string> more) {
    more.insert(more.begin(), words.begin(), words.end());
    return run(more);
  };
  EXPECT_EQ(with({"--user", "operator", "--password-file", password}).status, 0);
  const QovctlRun wrong =
      with({"--user", "operator", "--password-file", file("wrong", "secret\n")});
  EXPECT_EQ(wrong.status, 5);
  EXPECT_EQ(wrong.err, "qovctl: no connection to " + broker.address() + ": Not authorized\n");
  EXPECT_EQ(with({}).status, 5);
  const QovctlRun none = with({"--user", "operator", "--password-file", "nowhere"});
  EXPECT_EQ(none.status, 1);
  EXPECT_THAT(none.err, HasSubstr("nowhere: "));
}

TEST_F(QovctlFleetList, KnowsItsBrokerByItsCertificate) {
  const MqttBroker broker(MqttBroker::Security::kTlsWithClients);
  const std::vector<std::string> words{"fleet",          "list",     "--broker",
                                       broker.address(), "--cafile", broker.file("ca.crt")};
  std::vector<std::string> known = words;
  known.insert(known.end(),
               {"--cert", broker.file("client.crt"), "--key", broker.file("client.key")});
  const QovctlRun listed = run(known);
  EXPECT_EQ(listed.status, 0) << listed.err;
  // Without a certificate of its own it is not taken.
  const QovctlRun unknown = run(words);
  EXPECT_EQ(unknown.status, 3) << unknown.err;
  EXPECT_THAT(unknown.err, HasSubstr("no connection to " + broker.address()));
}

TEST_F(QovctlFleetList, TalksToNoOtherBroker) {
  const MqttBroker broker(MqttBroker::Security::kTlsForAnother);
  const QovctlRun refused =
      run({"fleet", "list", "--broker", broker.address(), "--cafile", broker.file("ca.crt")});
  EXPECT_EQ(refused.status, 3);
  EXPECT_THAT(refused.err, HasSubstr("certificate verify failed"));
  const QovctlRun unknown =
      run({"fleet", "list", "--broker", broker.address(), "--cafile", broker.file("client.crt")});
  EXPECT_EQ(unknown.status, 3);
  const QovctlRun unread =
      run({"fleet", "list", "--broker", broker.address(), "--cafile", "nowhere"});
  EXPECT_EQ(unread.status, 1);
  EXPECT_EQ(unread.err, "qovctl: nowhere: No such file or directory\n");
}

TEST_F(QovctlFleetList, SaysThatThereIsNoBroker) {
  const ClosedPort nobody;
  const std::string address = "127.0.0.1:" + std::to_string(nobody.port());
  const QovctlRun failed = run({"fleet", "list", "--broker", address});
  EXPECT_EQ(failed.status, 3);
  EXPECT_EQ(failed.err, "qovctl: no connection to " + address + ": Connection refused\n");
}

TEST_F(QovctlFleetList, WaitsForABrokerNoLongerThanItsTimeout) {
  const QuietPort silent;
  const std::string address = "127.0.0.1:" + std::to_string(silent.port());
  const QovctlRun failed = run({"fleet", "list", "--broker", address, "--timeout", "0.1"});
  EXPECT_EQ(failed.status, 3);
  EXPECT_EQ(failed.err, "qovctl: no connection to " + address + ": Connection timed out\n");
}

TEST_F(QovctlFleetList, RefusesWhatItCannotAsk) {
  const auto refusal = [&](std::vector<std::string> more) {
    more.insert(more.begin(), {"fleet"});
    const QovctlRun refused = run(more);
    EXPECT_EQ(refused.status, 2) << refused.err;
    EXPECT_EQ(refused.out, "");
    return refused.err;
  };
  EXPECT_EQ(refusal({}), "qovctl: fleet: a command is required: list, watch, ask\n");
  EXPECT_EQ(refusal({"list"}), "qovctl: --broker is required, or QOVCTL_BROKER\n");
  for (const char* const broker :
       {"", ":1883", "host:", "host:0", "host:65536", "::1", "[::1", "[]"}) {
    EXPECT_THAT(refusal({"list", "--broker", broker}), HasSubstr("not host[:port]"));
  }
  for (const char* const agents : {"edge", "/a", "a/", "a/b/c", "+/a", "a/#"}) {
    EXPECT_THAT(refusal({"list", "--broker", "host", agents}), HasSubstr("no NODE/PROCESS"));
  }
  EXPECT_THAT(refusal({"list", "--broker", "host", "--cert", "a"}), HasSubstr("--cert requires"));
  EXPECT_THAT(refusal({"list", "--broker", "host", "--password-file", "a"}),
              HasSubstr("--password-file requires --user"));
  EXPECT_THAT(refusal({"ask", "--broker", "host", "a/b", "20"}), HasSubstr("--opc is required"));
  EXPECT_THAT(refusal({"ask", "--broker", "host", "a/b", "256", "--opc", "1"}),
              HasSubstr("MODULE"));
  EXPECT_THAT(refusal({"ask", "--broker", "host", "a/b", "20", "--opc", "1", "--cell", "1:Uint:1"}),
              HasSubstr("a cell without a command before it"));
}

}  // namespace
}  // namespace qov::test
