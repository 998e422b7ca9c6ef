#ifndef QOV_MODULES_MQTT_REQUEST_REFUSAL_H
#define QOV_MODULES_MQTT_REQUEST_REFUSAL_H

#include <qovpub/qov_request.h>

#include <cstddef>
#include <cstdint>
#include <string>

namespace qov::mqtt {

/// Why a request from the broker gets no answer of a module: docs/mqtt-requests.md.
enum class RequestError : std::uint8_t {
  kTooLong,
  kContentType,
  kBadMessage,
  kBadTimeout,
  kNotAllowed,
  kNoModule,
  kTimedOut,
  kRefused,
  kBusy,
  kStopping,
  kBadAnswer
};
inline constexpr std::size_t kRequestErrors = 11;

/// As it stands in answers: "too-long".
const char* nameOf(RequestError error);

/// What the sender of the request is told in place of an answer.
struct RequestRefusal {
  RequestError error;
  std::string text;
  std::uint8_t result = 0;  ///< of the module, with kRefused

  /// {"error":{"code":"...","text":"..."}}; with kRefused also "result".
  std::string json() const;
};

/// Whether that is the json() of one, and no message's.
bool isRefusal(const std::string& payload);

/// For the reason, not kNone, why `module` has not answered.
RequestRefusal refusalOf(QOVReason reason, std::uint8_t result, std::uint8_t module);

}  // namespace qov::mqtt

#endif
