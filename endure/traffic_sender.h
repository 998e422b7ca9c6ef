#ifndef QOV_ENDURE_TRAFFIC_SENDER_H
#define QOV_ENDURE_TRAFFIC_SENDER_H

#include <qovpub/qov_request.h>
#include <qovpub/qov_task.h>

#include <cstdint>
#include <memory>
#include <random>

#include "endure/traffic.h"
#include "endure/traffic_order.h"

namespace qov::endure {

/// The operations of the modules.
enum TrafficOperation : std::uint64_t {
  kNote = 1,   ///< a notice, handled and no more
  kWork,       ///< a notice whose handler sends
  kAsk,        ///< a request that the pool answers
  kAskTask,    ///< a request that a static task answers
  kAskInVain,  ///< a request that nobody answers
};

/// Sends random messages of one task, and counts what comes of them.
///
/// Thread: one.
class TrafficSender {
 public:
  TrafficSender(Traffic& traffic, CQOV_Task& task, unsigned int part);

  /// A number from `least` to `most`.
  std::uint32_t between(std::uint32_t least, std::uint32_t most) {
    return std::uniform_int_distribution<std::uint32_t>(least, most)(random_);
  }
  bool oneIn(std::uint32_t n) { return between(1, n) == 1; }

  /// A request to any module, and waits for its answer.
  void ask();
  /// The same to the pool of its own module.
  void askOwnPool();
  /// A request to any module, with a continuation.
  void askLater();
  /// A notice to any module. Without a `limit` it waits for room.
  void tell(TrafficOperation operation, const QOVRequest::Duration* limit);
  /// The same without a payload, for `module`.
  void tellShortly(std::uint8_t module);
  /// An event for the MQTT module, whose operation is its serial.
  void tellMqtt();
  /// A message of a type that there is not.
  void sendOfNoType();
  /// Any of these, as a worker may.
  void sendAnything();

  std::uint8_t anyModule();

 private:
  /// A module, or none.
  std::uint8_t anyReceiver();
  Order anyOrder();
  QOVRequest::Duration anyTimeout();
  std::uint64_t operationOf(const Order& order);
  void askOf(std::uint8_t receiver, std::uint64_t operation, const Order& order);
  QOVAnswer send(std::unique_ptr<CQOV_MsgPackage> request, QOVRequest::Duration timeout);
  void told(QOVReason reason, std::uint8_t receiver);

  Traffic& traffic_;
  CQOV_Task& task_;
  const std::uint8_t module_;
  TrafficCounts& counts_;
  std::mt19937_64 random_;
};

}  // namespace qov::endure

#endif
