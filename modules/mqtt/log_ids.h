#ifndef QOV_MODULES_MQTT_LOG_IDS_H
#define QOV_MODULES_MQTT_LOG_IDS_H

#include <cstdint>

namespace qov::mqtt::log_id {

/// docs/mqtt.md has a row for each, docs/mqtt-requests.md for those of requests.
enum : std::uint64_t {
  kNotStarted = 66201,
  kUnknownKey = 66202,
  kConnected = 66203,
  kNotConnected = 66204,
  kConnectionLost = 66205,
  kMessageRefused = 66206,
  kSubscriptionRefused = 66207,
  kNotOffline = 66208,
  kSessionGivenUp = 66209,
  kOutboxSetAside = 66211,
  kOutboxFails = 66212,
  kOutboxGoesOn = 66213,
  kEventsDropped = 66214,
  kEventRefused = 66215,
  kOutboxHoldsUp = 66216,
  kEventsLost = 66217,
  kRequestUnanswerable = 66221,
  kAnswerLost = 66222,
  kRequestCounts = 66223,
};

}  // namespace qov::mqtt::log_id

#endif
