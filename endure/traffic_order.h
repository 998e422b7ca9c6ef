#ifndef QOV_ENDURE_TRAFFIC_ORDER_H
#define QOV_ENDURE_TRAFFIC_ORDER_H

#include <qovpub/qov_message_package.h>

#include <chrono>
#include <cstdint>

namespace qov::endure {

/// What stands in a message: which one it is, and what its handler is to do with it.
struct Order {
  static constexpr std::uint32_t kThrows = 256;  ///< of outcome_
  static constexpr std::uint32_t kMute = 257;    ///< of outcome_: no answer

  std::uint64_t serial_ = 0;  ///< no other message of the campaign has it
  std::chrono::microseconds handling_{0};
  std::uint32_t outcome_ = 0;  ///< the handler's result, 0 to 254, or one of the above
  std::uint32_t bytes_ = 0;    ///< of the payload, each of which tells the message

  bool operator==(const Order& other) const;
};

/// Puts `order` and its payload into `message`, which has no records.
void write(CQOV_MsgPackage& message, const Order& order);

/// What `message` says. Throws CQOV_Exception when it says nothing.
Order read(const CQOV_MsgPackage& message);

/// Whether `message` has the payload of `order`, all of it and nothing else.
bool hasPayloadOf(const CQOV_MsgPackage& message, const Order& order);

}  // namespace qov::endure

#endif
