#ifndef QOV_TESTS_MODULES_MQTT_WATCHER_H
#define QOV_TESTS_MODULES_MQTT_WATCHER_H

#include <sys/types.h>

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/support/mqtt_broker.h"

namespace qov::test {

/// Why there can be no broker with a watcher, for a test to skip with; empty when there can.
std::string whyNoBroker();

/// A broker with this configuration logs all it does, keeps its sessions over restarts, and takes
/// as much as it gets.
constexpr const char* kKeepsAll =
    "log_type all\npersistence true\nautosave_interval 0\npersistence_location %d/\n"
    "max_inflight_messages 0\nmax_queued_messages 0\n";

/// A message that the watcher has got.
struct Seen {
  std::string topic;
  bool retained = false;
  std::string contentType;
  bool isText = false;  ///< by the payload format indicator
  std::uint64_t number = 0;
  std::string outbox;
  std::string payload;

  nlohmann::json json() const { return nlohmann::json::parse(payload); }
};

/// A client that gets all that is published below qov/, over restarts of the broker. Its session
/// outlives its connections.
class Watcher {
 public:
  explicit Watcher(const MqttBroker& broker, const std::vector<std::string>& options = {});
  ~Watcher();

  Watcher(const Watcher&) = delete;
  Watcher& operator=(const Watcher&) = delete;

  /// All so far whose topics have `part` in them.
  std::vector<Seen> seen(const std::string& part) const;
  bool waitFor(const std::string& part, std::size_t count = 1) const;
  /// The last payload on a topic that ends with "/status".
  nlohmann::json status() const;

 private:
  const MqttBroker& broker_;
  pid_t pid_ = -1;
};

}  // namespace qov::test

#endif
