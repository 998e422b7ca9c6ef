#include "tests/modules/mqtt/mqtt_fixture.h"

#include <algorithm>
#include <csignal>

namespace qov::test {

void MqttTest::SetUp() {
  if (const std::string why = whyNoBroker(); !why.empty()) {
    GTEST_SKIP() << why;
  }
  agent.root().addModule("qovmqtt");
  broker_.emplace(kKeepsAll);
  configure();
}

void MqttTest::configure(const std::string& lines) {
  agent.root().writeConfig(1);
  const std::filesystem::path file = agent.root().cfgFile();
  AgentRoot::write(file, readFile(file) +
                             "[MQTT]\nHost=127.0.0.1\nPort=" + std::to_string(broker().port()) +
                             "\nNode=7\nReconnectSeconds=1\n" + lines);
}

int MqttTest::stored() {
  const std::string lines = readFile(agent.root().path() / "stored");
  return static_cast<int>(std::count(lines.begin(), lines.end(), '\n'));
}

void MqttTest::sendsEvents(int count) {
  const int all = stored() + count;
  writeFile(agent.root().path() / "wanted", std::to_string(all));
  EXPECT_TRUE(waitUntil([&] { return stored() >= all; })) << agent.log();
}

bool MqttTest::isSeen(const Watcher& watcher, bool online) {
  return waitUntil([&] {
    const nlohmann::json status = watcher.status();
    return status.is_object() && status["online"] == online;
  });
}

void MqttTest::isKilledAndStartsAgain() {
  agent.send(SIGKILL);
  EXPECT_EQ(agent.waitForEnd().signal, SIGKILL);
  agent.start({"-n"});
}

}  // namespace qov::test
