#ifndef QOV_MODULES_MQTT_CONNECTION_H
#define QOV_MODULES_MQTT_CONNECTION_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace qov::mqtt {

struct Settings;

/// A message from the broker.
struct Incoming {
  std::string topic;
  std::string payload;
  std::string contentType;    ///< empty without one, as are the next two
  std::string responseTopic;  ///< where the sender wants an answer; any topic at all
  std::string correlation;    ///< bytes that the answer carries, too
  std::vector<std::pair<std::string, std::string>> properties;  ///< of the user
};

/// A message for the broker.
struct Outgoing {
  std::string topic;  ///< without wildcards
  std::string payload;
  std::string contentType;  ///< none if empty
  bool isText = false;      ///< UTF-8: payload format indicator 1
  std::string correlation;  ///< none if empty; at most 65535 bytes
  std::vector<std::pair<std::string, std::string>> properties;  ///< of the user
  std::uint64_t number = 0;  ///< for Handlers::settled; 0: nobody is told
  bool atMostOnce = false;   ///< QoS 0: lost if the connection breaks while it is on its way

  std::size_t size() const { return payload.size() + correlation.size(); }
};

/// What others are told about this agent, on one topic, retained.
struct Presence {
  std::string topic;
  /// The document while it is connected. Asked for once a second and published when it has changed.
  std::function<std::string()> online;
  /// The one for the end: published at an orderly stop, and the last will that is set now.
  std::function<std::string()> offline;
};

/// One agent's connection to its broker: made again and again until it stands, and when it is lost.
///
/// What is published goes out at least once while this object lives: it waits for a connection, and
/// what the broker has not acknowledged when the connection breaks goes out again on the next one.
/// While answers, which go at most once, cannot leave, nothing is received: so requests come no
/// faster than their answers go.
///
/// Thread: has one, on which the handlers and Presence's functions are called: they do not wait.
///         publish(), isOnline() and counts() from any thread, handlers included.
/// Errors: the constructor throws CQOV_Exception. All else is logged: docs/mqtt.md.
class Connection {
 public:
  /// Messages that publish() keeps, and as many answers.
  static constexpr std::size_t kMostPending = 1024;
  /// Of their payloads and correlation data.
  static constexpr std::size_t kMostPendingBytes = std::size_t{16} << 20U;
  static constexpr std::size_t kMostReceived = std::size_t{2} << 20U;  ///< bytes of one packet
  static constexpr int kFirstRefusal = 128;  ///< reasons from here on say that something failed

  struct Handlers {
    /// The connection stands; or stands no more.
    std::function<void(bool)> online = [](bool) {};
    /// The broker took the message with that number, or `reason`, kFirstRefusal or more, says why
    /// it did not.
    std::function<void(std::uint64_t number, int reason)> settled = [](std::uint64_t, int) {};
    std::function<void(Incoming&&)> received = [](Incoming&&) {};
    /// A message with atMostOnce is larger than the broker takes.
    std::function<void(Outgoing&&)> tooLarge = [](Outgoing&&) {};
  };

  struct Counts {
    std::atomic<std::uint64_t> connections{0};
    std::atomic<std::uint64_t> published{0};  ///< and taken by the broker
    std::atomic<std::uint64_t> refused{0};    ///< by the broker
    std::atomic<std::uint64_t> received{0};
    std::atomic<std::uint64_t> noRoom{0};  ///< publish() has returned false
  };

  /// Starts at once. Subscribes to `filters` on every connection, QoS 1; what is retained there is
  /// not delivered.
  Connection(const Settings& settings, const std::string& clientId, Presence presence,
             Handlers handlers, const std::vector<std::string>& filters = {});
  /// Publishes the answers that wait and that the agent is offline, or has the broker do so if that
  /// does not take them within two seconds, and ends. QoS 1 messages that were not on their way yet
  /// are forgotten.
  ~Connection();

  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// Publishes `message`, now or when the connection stands. False, and `message` as it
  /// was, while there are kMostPending, or kMostPendingBytes, that the broker has not acknowledged,
  /// or of answers that have not left.
  bool publish(Outgoing&& message);

  bool isOnline() const;
  const Counts& counts() const;

 private:
  class Loop;
  const std::unique_ptr<Loop> loop_;
};

}  // namespace qov::mqtt

#endif
