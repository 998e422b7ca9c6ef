#ifndef QOV_TESTS_TOOLS_FUZZ_PLAYED_BROKER_H
#define QOV_TESTS_TOOLS_FUZZ_PLAYED_BROKER_H

#include <mosquitto.h>

#include <cstddef>
#include <set>
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
  bool hasLost() const { return hasLost_; }

  // The library's functions.
  int loop(mosquitto& client, int timeout);
  void subscribe() { isSubscribing_ = true; }
  void unsubscribe();
  int publish();

 private:
  void deliver(mosquitto& client, const BrokerMessage& message);

  std::string script_;
  bool isConnecting_ = true;
  bool isSubscribing_ = false;
  bool hasLost_ = false;
  int published_ = 0;
  std::set<int> unanswered_;  ///< the numbers of requests that may still be refused
  std::vector<BrokerMessage> delivered_;
  std::size_t first_ = 0;
  bool hasUnsubscribed_ = false;
};

}  // namespace qov::test

#endif
