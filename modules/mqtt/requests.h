#ifndef QOV_MODULES_MQTT_REQUESTS_H
#define QOV_MODULES_MQTT_REQUESTS_H

#include <qovpub/qov_message_package.h>
#include <qovpub/qov_request.h>
#include <qovpub/qov_task.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "modules/mqtt/connection.h"
#include "modules/mqtt/request_refusal.h"
#include "modules/mqtt/seldom.h"
#include "modules/mqtt/settings.h"

namespace qov::mqtt {

/// Brings requests from the broker to the modules of the agent, and their answers back. Every
/// request whose answer has a place to go to gets one, maybe a refusal: docs/mqtt-requests.md.
///
/// Thread: take() on one thread at a time; it waits for nothing but room in the sender's module.
///         Answers are published on workers of that module. counts() from any thread.
/// Owns:   nothing. The sender is borrowed; this object outlives the stop of its module.
/// Errors: std::bad_alloc.
class Requests {
 public:
  static constexpr std::size_t kMostPayload = std::size_t{1} << 20U;  ///< bytes, in and out
  static constexpr std::size_t kMostPendingBytes = std::size_t{8} << 20U;
  static constexpr std::size_t kMostCorrelation = 1024;
  static constexpr std::size_t kMostTopic = 1024;  ///< bytes of a response topic

  /// False, and the message as it was, if there is no room for it.
  using Publish = std::function<bool(Outgoing&&)>;

  struct Counts {
    std::atomic<std::uint64_t> received{0};
    std::atomic<std::uint64_t> answered{0};      ///< by a module
    std::atomic<std::uint64_t> unanswerable{0};  ///< nobody may be told anything
    std::atomic<std::uint64_t> lost{0};          ///< answers that could not leave
    std::array<std::atomic<std::uint64_t>, kRequestErrors> refused{};  ///< by RequestError
  };

  /// Asks in the name of `sender`. Answers go to topics that begin with `responses`.
  Requests(CQOV_Task& sender, const RequestSettings& settings, std::string responses,
           Publish publish);

  void take(Incoming&& message);
  /// Tells the sender in place of an answer that it is larger than the broker takes.
  void tellTooLarge(Outgoing&& answer);

  /// What has come of all so far, as one record.
  void logCounts() const;

  const Counts& counts() const { return counts_; }

 private:
  /// What an answer needs to know of its request.
  struct Asked {
    std::string topic;
    std::string correlation;
    bool isJson = true;
    std::uint8_t module = 0;
    std::uint32_t serial = 0;  ///< as the request had it
    std::size_t bytes = 0;     ///< as it came or in memory, whichever is more
  };

  bool mayAnswerOn(const std::string& topic) const;
  void tellUnanswerable(const Incoming& message);
  /// Throws RequestRefusal.
  void pass(const Incoming& message, Asked& asked);
  std::chrono::milliseconds timeoutOf(const Incoming& message) const;
  void reserve(std::size_t bytes);
  void release(std::size_t bytes);

  void finish(const Asked& asked, QOVAnswer answer);
  void refuse(const Asked& asked, const RequestRefusal& refusal);
  void publish(const Asked& asked, std::string payload, bool isJson);
  void publish(Outgoing&& message);

  // Constant after construction.
  CQOV_Task& sender_;
  const RequestSettings settings_;
  const std::string responses_;
  const Publish publish_;

  std::atomic<std::size_t> pending_{0};
  std::atomic<std::size_t> pendingBytes_{0};
  Counts counts_;
  Seldom unanswerable_;
  Seldom lost_;
};

}  // namespace qov::mqtt

#endif
