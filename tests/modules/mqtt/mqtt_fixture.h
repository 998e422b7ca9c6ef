#ifndef QOV_TESTS_MODULES_MQTT_MQTT_FIXTURE_H
#define QOV_TESTS_MODULES_MQTT_MQTT_FIXTURE_H

#include <optional>
#include <string>
#include <vector>

#include "tests/modules/mqtt/watcher.h"
#include "tests/process/agent_test.h"

namespace qov::test {

/// A test of an agent with the module qovmqtt, node 7, and a real broker.
class MqttTest : public AgentTest {
 protected:
  void SetUp() override;

  /// Writes the agent's configuration with these lines in section "MQTT" beside those that name the
  /// broker.
  void configure(const std::string& lines = "Tls=0\n");
  void startsWith(const std::vector<std::string>& modules = {}) { starts(modules); }
  /// Has the module "events" send as many more, and waits until it knows them stored.
  void sendsEvents(int count);
  /// How many events are stored, as the module "events" was told.
  int stored();
  /// Whether the status says so.
  bool isSeen(const Watcher& watcher, bool online);

  /// The agent is killed and started again.
  void isKilledAndStartsAgain();

  MqttBroker& broker() { return *broker_; }

 private:
  std::optional<MqttBroker> broker_;
};

constexpr const char* kStatusTopic = "qov/7/qov_test_agent/status";
constexpr const char* kEventTopic = "qov/7/qov_test_agent/event/40/4097";

}  // namespace qov::test

#endif
