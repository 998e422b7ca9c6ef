#ifndef QOV_TESTS_MODULES_MQTT_REQUESTER_H
#define QOV_TESTS_MODULES_MQTT_REQUESTER_H

#include <condition_variable>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/mqtt_broker.h"

struct mosquitto;

namespace qov::test {

/// What a client of the broker publishes to ask an agent.
struct Question {
  std::string topic;
  std::string payload;
  std::string responseTopic;
  std::string correlation;
  std::string contentType = "application/json";
  std::vector<std::pair<std::string, std::string>> properties;
  bool retain = false;
};

struct Told {
  std::string payload;
  std::string contentType;
  std::string correlation;
};

/// A client of the broker that asks agents: it subscribes to `responses` and collects what comes.
/// Throws std::runtime_error when something fails that should not.
class Requester {
 public:
  Requester(const MqttBroker& broker, const std::string& responses);
  ~Requester();

  Requester(const Requester&) = delete;
  Requester& operator=(const Requester&) = delete;

  void send(const Question& question);
  /// Whether so many answers have come since the last takeAll().
  bool waitFor(std::size_t count);
  std::vector<Told> takeAll();
  /// The only answer to the question; an empty one if none comes.
  Told ask(const Question& question);

 private:
  struct Callbacks;

  mosquitto* const client_;

  std::mutex lock_;
  std::condition_variable changed_;
  // Guarded by lock_.
  bool subscribed_ = false;
  std::vector<Told> told_;
};

}  // namespace qov::test

#endif
