#ifndef QOV_TOOLS_QOVCTL_FLEET_BROKER_H
#define QOV_TOOLS_QOVCTL_FLEET_BROKER_H

#include <chrono>
#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/qovctl/failure.h"
#include "tools/qovctl/fleet_options.h"

struct mosquitto;
struct mosquitto_message;
struct mqtt5__property;

namespace qov::ctl {

/// A message that the broker has delivered.
struct Delivery {
  std::string topic;
  std::string payload;
  std::chrono::steady_clock::time_point time;
  bool retained = false;    ///< it was there before the subscription
  std::string contentType;  ///< empty without one, as are the next three
  std::string correlation;
  std::string number;  ///< of the user properties these two
  std::string outbox;
};

/// A request that is to be published.
struct Question {
  std::string topic;
  std::string payload;  ///< JSON
  std::string responseTopic;
  std::string correlation;
  double timeout;  ///< seconds: the agent is told, and the broker keeps the request no longer
};

/// A connection to an MQTT 5 broker, with a session that ends with it.
///
/// Thread: the only one of the program.
/// Owns:   the connection.
/// Errors: Failure: kNoConnection, kTimedOut, and kEndpointError for what the broker refuses.
class Broker {
 public:
  using Clock = std::chrono::steady_clock;

  /// The broker is told to deliver none that is larger.
  static constexpr std::size_t kMostBytes = std::size_t{4} << 20U;

  /// Connects.
  explicit Broker(const BrokerTarget& target);
  ~Broker();
  Broker(const Broker&) = delete;
  Broker& operator=(const Broker&) = delete;

  /// Differs from that of any other connection.
  const std::string& clientId() const { return clientId_; }

  /// Waits until the broker has taken the subscription.
  void subscribe(const std::string& filter, int qos);
  /// Deliveries of it may still come.
  void unsubscribe(const std::string& filter);

  /// The question's number.
  int publish(const Question& question);
  /// The numbers of the questions that the broker has not taken, or could give nobody, and why;
  /// each once.
  std::vector<std::pair<int, std::string>> takeRefused() { return std::exchange(refused_, {}); }

  static constexpr std::chrono::seconds kLongestWait{1};
  /// Waits until something has come, `time` at the latest, and no longer than kLongestWait.
  void wait(Clock::time_point time);
  /// The next delivery that has come; nothing if there is none.
  std::optional<Delivery> take();

 private:
  /// What the library needs once.
  struct Library {
    Library();
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
  };
  struct Free {
    void operator()(mosquitto* client) const;
  };
  using Properties = mqtt5__property;

  void setUp(const BrokerTarget& target);
  void setCallbacks();
  void connect();
  void check(int result, const std::string& what) const;
  void checkSent(int result, const std::string& what) const;
  [[noreturn]] void failConnection(ExitCode code, const std::string& why) const;
  [[noreturn]] void failLoop(int result) const;
  void loop(Clock::time_point time);
  template <class Condition>
  void waitFor(const Condition& condition, const std::string& what);

  // The broker's answers, from within wait().
  static void onConnect(mosquitto* client, void* broker, int reason, int flags,
                        const Properties*) noexcept;
  static void onDisconnect(mosquitto* client, void* broker, int reason, const Properties*) noexcept;
  static void onSubscribe(mosquitto* client, void* broker, int id, int count, const int* granted,
                          const Properties*) noexcept;
  static void onPublish(mosquitto* client, void* broker, int id, int reason,
                        const Properties*) noexcept;
  static void onMessage(mosquitto* client, void* broker, const mosquitto_message* message,
                        const Properties* properties) noexcept;
  static void onLog(mosquitto* client, void* broker, int level, const char* text) noexcept;

  const std::string name_;  ///< of the broker, for complaints
  const double timeout_;
  std::string host_;
  int port_;
  const std::string clientId_;
  const Library library_;
  const std::unique_ptr<mosquitto, Free> client_;
  std::optional<int> connected_;     ///< the reason that came with it: 0 for success
  std::optional<int> disconnected_;  ///< the same
  std::optional<int> subscribed_;
  std::vector<std::pair<int, std::string>> refused_;
  std::deque<Delivery> deliveries_;
  std::size_t waitingBytes_ = 0;  ///< of the deliveries
  std::string lastError_;         ///< that the library has logged
};

}  // namespace qov::ctl

#endif
