#ifndef QOV_TESTS_TOOLS_FAKE_FLEET_H
#define QOV_TESTS_TOOLS_FAKE_FLEET_H

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

struct mosquitto;
struct mosquitto_message;
struct mqtt5__property;

namespace qov::test {

/// Plays any number of agents on one connection to a broker.
///
/// Thread: one; the handler is called on another.
/// Owns:   the connection.
/// Errors: std::runtime_error.
class FakeFleet {
 public:
  using Properties = std::vector<std::pair<std::string, std::string>>;

  /// A request as an agent gets it.
  struct Request {
    std::string topic;
    std::string payload;
    std::string contentType;
    std::string timeout;  ///< the user property
  };
  struct Answer {
    std::string payload;
    std::string contentType = "application/json";
    /// In place of those of the request, where they are not empty.
    std::string topic{};
    std::string correlation{};
  };
  using Handler = std::function<std::vector<Answer>(const Request&)>;

  explicit FakeFleet(int port);
  ~FakeFleet();
  FakeFleet(const FakeFleet&) = delete;
  FakeFleet& operator=(const FakeFleet&) = delete;

  /// Publishes, and waits until the broker has it.
  void publish(const std::string& topic, const std::string& payload, bool retain = false,
               const std::string& contentType = {}, const Properties& user = {});
  /// The agent's retained document.
  void tell(const std::string& agent, const std::string& document) {
    publish("qov/" + agent + "/status", document, true);
  }
  void event(const std::string& topic, const std::string& payload, const std::string& number,
             const std::string& outbox = "a1",
             const std::string& contentType = "application/json") {
    publish("qov/" + topic, payload, false, contentType, {{"number", number}, {"outbox", outbox}});
  }

  /// From here on requests to these agents, a filter for their two names, are answered.
  void serve(Handler handler, const std::string& agents = "+/+");
  std::vector<Request> requests() const;

 private:
  void take(const mosquitto_message& message, const mqtt5__property* properties);
  bool waitFor(int id) const;

  const std::unique_ptr<mosquitto, void (*)(mosquitto*)> client_;

  mutable std::mutex lock_;
  // Guarded by lock_.
  bool connected_ = false;
  std::set<int> done_;
  std::vector<Request> requests_;
  Handler handler_;
};

}  // namespace qov::test

#endif
