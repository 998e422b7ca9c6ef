// Whom the broker lets in, and whom the agent trusts: TLS, certificates, accounts, access lists.
#include <regex>

#include "tests/modules/mqtt/mqtt_fixture.h"
#include "tests/support/process_end.h"
#include "tests/support/spawn.h"

namespace qov::test {
namespace {

using ::testing::HasSubstr;

using Security = MqttBroker::Security;

class MqttAccess : public AgentTest {
 protected:
  void SetUp() override {
    if (const std::string why = whyNoBroker(); !why.empty()) {
      GTEST_SKIP() << why;
    }
    agent.root().addModule("qovmqtt");
  }

  /// Starts an agent at the broker, with these lines in its section.
  void startsAt(const MqttBroker& broker, const std::string& lines) {
    agent.root().writeConfig(1);
    const std::filesystem::path cfg = agent.root().cfgFile();
    AgentRoot::write(cfg, readFile(cfg) +
                              "[MQTT]\nHost=127.0.0.1\nPort=" + std::to_string(broker.port()) +
                              "\nNode=7\nReconnectSeconds=1\n" + lines);
    starts({"events"});
  }
  static std::string caOf(const MqttBroker& broker) {
    return "CaFile=" + broker.file("ca.crt") + "\n";
  }
  static std::string certificateOf(const MqttBroker& broker) {
    return "CertFile=" + broker.file("client.crt") + "\nKeyFile=" + broker.file("client.key") +
           "\n";
  }
  bool logs(const std::string& text) {
    return agent.waitForLog(text) || (ADD_FAILURE() << agent.log(), false);
  }
};

TEST_F(MqttAccess, ConnectsWithTlsToTheBrokerThatItsCaKnows) {
  const MqttBroker broker(Security::kTls);
  startsAt(broker, caOf(broker));
  EXPECT_TRUE(logs("Connected to the broker"));
}

TEST_F(MqttAccess, DoesNotConnectToABrokerOfAnotherCa) {
  const MqttBroker broker(Security::kTls);
  const MqttBroker stranger(Security::kTls);
  startsAt(broker, caOf(stranger));
  EXPECT_TRUE(logs("certificate verify failed"));
  EXPECT_TRUE(logs("; compare CaFile, CertFile, KeyFile and the name in Host"));
}

TEST_F(MqttAccess, DoesNotConnectToABrokerOfAnotherName) {
  const MqttBroker broker(Security::kTlsForAnother);
  startsAt(broker, caOf(broker));
  EXPECT_TRUE(logs("host name verification failed"));
  EXPECT_TRUE(logs("; compare CaFile, CertFile, KeyFile and the name in Host"));
  EXPECT_EQ(agent.log().find("Connected to"), std::string::npos);
}

TEST_F(MqttAccess, DoesNotConnectWithTlsToABrokerWithout) {
  const MqttBroker broker;
  const MqttBroker other(Security::kTls);
  startsAt(broker, caOf(other));
  EXPECT_TRUE(logs("Failed to connect to the broker"));
}

TEST_F(MqttAccess, ShowsItsCertificate) {
  const MqttBroker broker(Security::kTlsWithClients, "use_identity_as_username true\n");
  startsAt(broker, caOf(broker) + certificateOf(broker));
  EXPECT_TRUE(logs("Connected to the broker"));
  EXPECT_THAT(broker.log(), HasSubstr("u'client'"));
}

TEST_F(MqttAccess, SaysThatTheBrokerWantsACertificate) {
  const MqttBroker broker(Security::kTlsWithClients);
  startsAt(broker, caOf(broker));
  EXPECT_TRUE(logs("Failed to connect to the broker"));
}

TEST_F(MqttAccess, SaysThatItsKeyNeedsAPassword) {
  const MqttBroker broker(Security::kTlsWithClients);
  BeforeProgram before;
  before.writeTo(STDERR_FILENO, broker.file("errors"));
  pid_t pid = spawn("/usr/bin/openssl",
                    {"ec", "-aes128", "-passout", "pass:secret", "-in", broker.file("client.key"),
                     "-out", broker.file("locked.key")},
                    before);
  ASSERT_EQ(waitForEndOf(pid).exitStatus, 0) << readFile(broker.file("errors"));
  startsAt(broker, caOf(broker) + "CertFile=" + broker.file("client.crt") +
                       "\nKeyFile=" + broker.file("locked.key") + "\n");
  EXPECT_TRUE(logs("Unable to load client key file"));
  stopsInOrder();
}

class MqttAccounts : public MqttAccess {
 protected:
  void SetUp() override {
    MqttAccess::SetUp();
    writeFile(folder.file("accounts"), "");
    writeFile(folder.file("list"), "user agent\ntopic write qov/7/qov_test_agent/status\n");
    password("right");
    // mosquitto_passwd makes the file anew, for its owner.
    BeforeProgram before;
    before.writeTo(STDERR_FILENO, folder.file("errors"));
    pid_t pid = spawn("/usr/bin/mosquitto_passwd",
                      {"-b", "-c", folder.file("accounts"), "agent", "right"}, before);
    if (!IsSkipped()) {
      ASSERT_EQ(waitForEndOf(pid).exitStatus, 0) << readFile(folder.file("errors"));
    }
  }

  void password(const std::string& word) { writeFile(folder.file("password"), word + "\n"); }
  std::string accounts(const std::string& more = "") {
    return "allow_anonymous false\nlog_type all\npassword_file " + folder.file("accounts") + "\n" +
           more;
  }
  std::string user() { return "Tls=0\nUser=agent\nPasswordFile=" + folder.file("password") + "\n"; }

  TemporaryDirectory folder;
};

TEST_F(MqttAccounts, ConnectsWithItsPassword) {
  const MqttBroker broker(accounts());
  startsAt(broker, user());
  EXPECT_TRUE(logs("Connected to the broker"));
}

TEST_F(MqttAccounts, ConnectsWithAPasswordFromAFileOfAnotherSystem) {
  const MqttBroker broker(accounts());
  password("right\r");
  startsAt(broker, user());
  EXPECT_TRUE(logs("Connected to the broker"));
}

TEST_F(MqttAccounts, SaysOnceThatTheBrokerRefusesIt) {
  const MqttBroker broker(accounts());
  password("wrong");
  startsAt(broker, user());
  EXPECT_TRUE(logs("Not authorized (reason 135); compare User, PasswordFile and CertFile"));
  // Refused again, and not logged again.
  EXPECT_TRUE(waitUntil([&] {
    const std::string log = broker.log();
    const std::size_t first = log.find("disconnected, not authorised");
    return first != std::string::npos &&
           log.find("disconnected, not authorised", first + 1) != std::string::npos;
  })) << broker.log();
  const std::string log = agent.log();
  EXPECT_EQ(log.find("reason 135"), log.rfind("reason 135"));
}

TEST_F(MqttAccounts, ConnectsWithANewPasswordWithoutARestart) {
  const MqttBroker broker(accounts());
  password("wrong");
  startsAt(broker, user());
  EXPECT_TRUE(logs("reason 135"));
  password("right");
  EXPECT_TRUE(logs("Connected to the broker"));
}

TEST_F(MqttAccounts, SaysThatItsPasswordIsNotThere) {
  MqttBroker broker(accounts());
  startsAt(broker, user());
  EXPECT_TRUE(logs("Connected to the broker"));
  std::filesystem::remove(folder.file("password"));
  broker.stop(SIGTERM);
  broker.start();
  EXPECT_TRUE(logs(folder.file("password") + " cannot be read: No such file or directory"));
  writeFile(folder.file("password"), "");
  EXPECT_TRUE(logs(folder.file("password") + " has no password; write it into"));
  password("right");
  EXPECT_TRUE(logsAnew("Connected to the broker"));
}

TEST_F(MqttAccounts, KeepsEventsThatTheAccessListForbidsUntilItAllowsThem) {
  const MqttBroker broker(accounts("acl_file " + folder.file("list") + "\n"));
  startsAt(broker, user());
  writeFile(agent.root().path() / "wanted", "1");
  EXPECT_TRUE(logs("refuses a message: qov/7/qov_test_agent/event/40/4097: Not authorized"));
  writeFile(folder.file("list"), "user agent\ntopic write qov/7/#\n");
  broker.reload();
  EXPECT_TRUE(waitUntil([&] {
    return std::regex_search(broker.log(), std::regex("Received PUBLISH [^\n]*event/40/4097"));
  })) << broker.log();
}

}  // namespace
}  // namespace qov::test
