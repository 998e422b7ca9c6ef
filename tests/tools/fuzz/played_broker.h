#ifndef QOV_TESTS_TOOLS_FUZZ_PLAYED_BROKER_H
#define QOV_TESTS_TOOLS_FUZZ_PLAYED_BROKER_H

#include <mosquitto.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace qov::test {

/// A message of another client.
struct BrokerMessage {
  std::string topic;
  std::string contentType;
  std::string correlation;
  std::string number;
  std::string outbox;
  std::string payload;
  bool retained = false;
};

/// A message of the program's client.
struct BrokerRequest {
  std::string topic;
  std::string correlation;
  std::size_t begin;                     ///< how much had been delivered before it
  std::optional<std::size_t> refused{};  ///< and before the broker said that nobody gets it
};

/// Plays a broker to the program's clients: those functions of libmosquitto that connect, and the
/// steady clock, are this one's. So a run needs no connection, and waits take no time.
///
/// The script has messages with a line "--" behind each. The first lines of one are flags, topic,
/// content type, correlation data, and the user properties number and outbox; the rest is the
/// payload. Flags are letters: r, the message is retained; q, before it a second passes; n, in
/// place of it comes that nobody gets the request whose number stands in place of the topic; d, the
/// connection is lost. Texts that the library would not let pass are left out.
class PlayedBroker {
 public:
  explicit PlayedBroker(std::string script);
  ~PlayedBroker();
  PlayedBroker(const PlayedBroker&) = delete;
  PlayedBroker& operator=(const PlayedBroker&) = delete;

  /// What has come so far, and as long as the client's first subscription went.
  const std::vector<BrokerMessage>& delivered() const { return delivered_; }
  std::vector<BrokerMessage> firstDelivered() const;
  const std::vector<BrokerRequest>& requests() const { return requests_; }
  bool hasLost() const { return hasLost_; }

  // The library's functions.
  int loop(mosquitto& client, int timeout);
  void subscribe() { isSubscribing_ = true; }
  void unsubscribe();
  /// The request's number.
  int publish(const std::string& topic, const mosquitto_property* properties);

 private:
  void deliver(mosquitto& client, const BrokerMessage& message);

  std::string script_;
  bool isConnecting_ = true;
  bool isSubscribing_ = false;
  bool hasLost_ = false;
  std::vector<BrokerRequest> requests_;
  std::vector<BrokerMessage> delivered_;
  std::size_t first_ = 0;
  bool hasUnsubscribed_ = false;
};

}  // namespace qov::test

#endif
