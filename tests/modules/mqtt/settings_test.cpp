// What a process says to its section "MQTT".
#include "tests/process/agent_test.h"

namespace qov::test {
namespace {

using ::testing::HasSubstr;

class MqttSettings : public AgentTest {
 protected:
  MqttSettings() { agent.root().addModule("qovmqtt"); }

  void configure(const std::string& lines) {
    agent.root().writeConfig(1);
    const std::filesystem::path file = agent.root().cfgFile();
    AgentRoot::write(file, readFile(file) + "[MQTT]\nNode=7\n" + lines);
  }
  /// The agent does not start and says so in its log.
  void refuses(const std::string& lines, const std::string& why) {
    configure(lines);
    agent.start({"-n"});
    hasExited(agent.waitForEnd(), 1);
    EXPECT_THAT(agent.log() + agent.errors(), HasSubstr("[MQTT] " + why));
  }
};

TEST_F(MqttSettings, NeedABroker) {
  refuses("Tls=0\n", "Host=: the broker's name or address is missing");
}

TEST_F(MqttSettings, RefuseNumbersOutOfRange) {
  refuses("Host=127.0.0.1\nPort=65536\n", "Port=65536: no number from 1 to 65535");
  refuses("Host=127.0.0.1\nKeepAliveSeconds=4\n", "KeepAliveSeconds=4: no number from 5 to 65535");
  refuses("Host=127.0.0.1\nOutboxRows=0\n", "OutboxRows=0: no number from 1 to 100000000");
  refuses("Host=127.0.0.1\nModuleId=x\n", "ModuleId=x: no number from 0 to 255");
}

TEST_F(MqttSettings, RefuseFilesThatCannotBeRead) {
  refuses("Host=127.0.0.1\nCaFile=/nowhere.pem\n",
          "CaFile=/nowhere.pem: cannot be read: No such file or directory");
}

TEST_F(MqttSettings, RefuseWhatDoesNotGoTogether) {
  refuses("Host=h\nCertFile=/dev/null\n", "CertFile=/dev/null: CertFile and KeyFile belong");
  refuses("Host=h\nTls=0\nCaFile=/dev/null\n", "Tls=0: files of certificates are given");
  refuses("Host=h\nPasswordFile=/dev/null\n", "PasswordFile=/dev/null: the key User is missing");
}

TEST_F(MqttSettings, RefuseWhatIsNotKnown) {
  refuses("Host=h\nEventForm=xml\n", "EventForm=xml: neither json nor bytes");
  refuses("Host=h\nOutbox=here\n", "Outbox=here: no absolute path");
}

TEST_F(MqttSettings, RefuseWhatCannotBeCopied) {
  refuses("Host=h\nCopyMessages=10\n",
          "CopyMessages=10: \"10\": not MODULE:CODE,CODE... or MODULE:*");
  refuses("Host=h\nCopyMessages=10:* 251:1\n",
          "CopyMessages=10:* 251:1: 251 is this module's own id");
}

TEST_F(MqttSettings, WarnOfUnknownKeys) {
  configure("Host=127.0.0.1\nPort=1\nTls=0\nhots=a\n");
  starts({});
  ASSERT_TRUE(agent.waitForLog("[MQTT] hots: unknown key, ignored"));
  stopsInOrder();
}

TEST_F(MqttSettings, NeedANodeThatThePlatformDoesNotTell) {
  refuses("Host=h\nNode=\n", "Node=: the platform does not tell the node's id; give one here");
}

}  // namespace
}  // namespace qov::test
