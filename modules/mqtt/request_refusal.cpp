#include "modules/mqtt/request_refusal.h"

#include <json/value.h>

#include "modules/common/controls.h"
#include "modules/common/json_object.h"

namespace qov::mqtt {

const char* nameOf(RequestError error) {
  constexpr const char* kNames[kRequestErrors] = {
      "too-long",  "content-type", "bad-message", "bad-timeout", "not-allowed", "no-module",
      "timed-out", "refused",      "busy",        "stopping",    "bad-answer"};
  return kNames[static_cast<std::size_t>(error)];
}

std::string RequestRefusal::json() const {
  Json::Value document;
  Json::Value& described = document["error"];
  described["code"] = nameOf(error);
  // Some texts quote what came, which need not be UTF-8.
  described["text"] = common::withoutControls(text);
  if (error == RequestError::kRefused) {
    described["result"] = Json::Int{result};
  }
  return common::jsonLine(document);
}

bool isRefusal(const std::string& payload) {
  return payload.rfind(R"({"error":)", 0) == 0;
}

RequestRefusal refusalOf(QOVReason reason, std::uint8_t result, std::uint8_t module) {
  const std::string name = "module " + std::to_string(module);
  switch (reason) {
    case QOVReason::kTimedOut:
      return {RequestError::kTimedOut, name + ": no answer came in time"};
    case QOVReason::kRefused:
      return {RequestError::kRefused, name + " answered with result " + std::to_string(result),
              result};
    case QOVReason::kNoReceiver:
      return {RequestError::kNoModule, name + " is not in this agent"};
    case QOVReason::kStopped:
      return {RequestError::kStopping, name + ": " + QOV_TextOf(reason)};
    case QOVReason::kInvalid:
      return {RequestError::kBadAnswer, name + ": " + QOV_TextOf(reason)};
    default:
      return {RequestError::kBusy, name + ": " + QOV_TextOf(reason)};
  }
}

}  // namespace qov::mqtt
