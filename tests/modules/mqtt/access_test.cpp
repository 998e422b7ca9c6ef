// Whom the broker lets in, and whom the agent trusts: TLS, certificates, accounts, access lists.
#include <regex>

#include "tests/modules/mqtt/mqtt_fixture.h"
#include "tests/support/process_end.h"
#include "tests/support/spawn.h"

namespace qov::test {
namespace {

using ::testing::HasSubstr;

/// A CA, a certificate for the broker, one for another name, and one for a client.
class Certificates {
 public:
  Certificates() {
    const std::string commands =
        "set -e; cd " + folder_.path().string() +
        "; key='-newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2'\n"
        "ca() { openssl req -x509 $key -subj /CN=$1 -keyout $1.key -out $1.pem; }\n"
        "signed() { openssl req -x509 $key -subj /CN=$1 -addext subjectAltName=$2"
        " -addext basicConstraints=CA:FALSE -CA ca.pem -CAkey ca.key -keyout $1.key -out $1.pem; "
        "}\n"
        "ca ca; ca stranger\n"
        "signed broker IP:127.0.0.1; signed other DNS:other.example; signed client DNS:client\n"
        "chmod a+r *; chmod a+x .\n";
    BeforeProgram before;
    before.writeTo(STDERR_FILENO, folder_.file("openssl.log"));
    pid_t pid = spawn("/bin/sh", {"-c", commands}, before);
    if (waitForEndOf(pid).exitStatus != 0) {
      throw std::runtime_error("no certificates: " + readFile(folder_.file("openssl.log")));
    }
  }

  std::string file(const std::string& name) const { return folder_.file(name); }

 private:
  TemporaryDirectory folder_;
};

class MqttAccess : public AgentTest {
 protected:
  static void SetUpTestSuite() { certificates = std::make_unique<Certificates>(); }
  static void TearDownTestSuite() { certificates.reset(); }
  static std::string file(const std::string& name) { return certificates->file(name); }

  void SetUp() override {
    if (!Broker::isInstalled()) {
      GTEST_SKIP() << "no broker; install it with: apt-get install mosquitto mosquitto-clients";
    }
    agent.root().addModule("qovmqtt");
  }

  static std::string tlsOf(const std::string& certificate, const std::string& more = "") {
    return "allow_anonymous true\ncafile " + file("ca.pem") + "\ncertfile " +
           file(certificate + ".pem") + "\nkeyfile " + file(certificate + ".key") + "\n" + more;
  }
  /// Starts an agent at the broker, with these lines in its section.
  void startsAt(Broker& broker, const std::string& lines) {
    broker.start();
    agent.root().writeConfig(1);
    const std::filesystem::path cfg = agent.root().cfgFile();
    AgentRoot::write(cfg, readFile(cfg) +
                              "[MQTT]\nHost=127.0.0.1\nPort=" + std::to_string(broker.port()) +
                              "\nNode=7\nReconnectSeconds=1\n" + lines);
    starts({"events"});
  }
  std::string brokersCa() { return "CaFile=" + file("ca.pem") + "\n"; }
  bool logs(const std::string& text) {
    return agent.waitForLog(text) || (ADD_FAILURE() << agent.log(), false);
  }

  static inline std::unique_ptr<Certificates> certificates;
};

TEST_F(MqttAccess, ConnectsWithTlsToTheBrokerThatItsCaKnows) {
  Broker broker(tlsOf("broker"));
  startsAt(broker, brokersCa());
  EXPECT_TRUE(logs("Connected to the broker"));
}

TEST_F(MqttAccess, DoesNotConnectToABrokerOfAnotherCa) {
  Broker broker(tlsOf("broker"));
  startsAt(broker, "CaFile=" + file("stranger.pem") + "\n");
  EXPECT_TRUE(logs("certificate verify failed"));
  EXPECT_TRUE(logs("; compare CaFile, CertFile, KeyFile and the name in Host"));
}

TEST_F(MqttAccess, DoesNotConnectToABrokerOfAnotherName) {
  Broker broker(tlsOf("other"));
  startsAt(broker, brokersCa());
  EXPECT_TRUE(logs("; compare CaFile, CertFile, KeyFile and the name in Host"));
  EXPECT_EQ(agent.log().find("Connected to"), std::string::npos);
}

TEST_F(MqttAccess, DoesNotConnectWithTlsToABrokerWithout) {
  Broker broker;
  startsAt(broker, brokersCa());
  EXPECT_TRUE(logs("Failed to connect to the broker"));
}

TEST_F(MqttAccess, ShowsItsCertificate) {
  Broker broker(tlsOf("broker", "require_certificate true\nuse_identity_as_username true\n"));
  startsAt(broker, brokersCa() + "CertFile=" + file("client.pem") +
                       "\nKeyFile=" + file("client.key") + "\n");
  EXPECT_TRUE(logs("Connected to the broker"));
  EXPECT_THAT(broker.log(), HasSubstr("u'client'"));
}

TEST_F(MqttAccess, SaysThatTheBrokerWantsACertificate) {
  Broker broker(tlsOf("broker", "require_certificate true\n"));
  startsAt(broker, brokersCa());
  EXPECT_TRUE(logs("Failed to connect to the broker"));
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
    return "allow_anonymous false\npassword_file " + folder.file("accounts") + "\n" + more;
  }
  std::string user() { return "Tls=0\nUser=agent\nPasswordFile=" + folder.file("password") + "\n"; }

  TemporaryDirectory folder;
};

TEST_F(MqttAccounts, ConnectsWithItsPassword) {
  Broker broker(accounts());
  startsAt(broker, user());
  EXPECT_TRUE(logs("Connected to the broker"));
}

TEST_F(MqttAccounts, ConnectsWithAPasswordFromAFileOfAnotherSystem) {
  Broker broker(accounts());
  password("right\r");
  startsAt(broker, user());
  EXPECT_TRUE(logs("Connected to the broker"));
}

TEST_F(MqttAccounts, SaysOnceThatTheBrokerRefusesIt) {
  Broker broker(accounts());
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
  Broker broker(accounts());
  password("wrong");
  startsAt(broker, user());
  EXPECT_TRUE(logs("reason 135"));
  password("right");
  EXPECT_TRUE(logs("Connected to the broker"));
}

TEST_F(MqttAccounts, KeepsEventsThatTheAccessListForbidsUntilItAllowsThem) {
  Broker broker(accounts("acl_file " + folder.file("list") + "\n"));
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
