#ifndef QOV_TOOLS_QOV_ENDPOINT_FAULT_H
#define QOV_TOOLS_QOV_ENDPOINT_FAULT_H

#include <qovpub/qov_message_package.h>

#include <chrono>
#include <cstdint>
#include <optional>

#include "tools/qov-endpoint/delivery.h"

namespace qov::endpoint {

/// One way to answer wrongly. docs/endpoint.md says what each does.
enum class Action {
  kClose,
  kDelay,
  kDrip,
  kSerial,
  kRet,
  kLength,
  kMagic,
  kTwoRecords,
  kNoRecord,
  kNoStatus,
  kTextStatus,
  kStatus,
  kNoEnd,
  kRefuse,
  kSilent,
};

struct Fault {
  Action action = Action::kClose;
  // Which requests it meets: counted from 1, all of them when not set. Request 0 is the moment at
  // which the connection is accepted.
  std::optional<std::uint64_t> connection;
  std::optional<std::uint64_t> request;
  std::optional<std::uint64_t> left;  ///< how many more times; for ever when not set

  // What an action needs to know.
  std::uint64_t after = 0;            ///< close: bytes of the answer that still go out
  std::chrono::milliseconds time{0};  ///< delay, drip, refuse
  std::optional<std::int64_t> value;  ///< ret, length, magic, status
  std::int64_t add = 0;               ///< serial, length
  bool fill = false;                  ///< length: as many bytes as the head claims
};

/// The longest body that an answer with `fill` may have.
inline constexpr std::int64_t kLongestFilled = 4 << 20;

/// Spoils the records of an answer, if that is what the fault does.
void spoilRecords(const Fault& fault, CT7QPackageV3& answer);

/// Spoils the head, the length or the way out of an answer, if that is what the fault does.
void spoilDelivery(const Fault& fault, Delivery& delivery);

/// Whether a client can still find rows in what is sent.
bool keepsRecords(Action action);

}  // namespace qov::endpoint

#endif
