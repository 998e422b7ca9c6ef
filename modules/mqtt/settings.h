#ifndef QOV_MODULES_MQTT_SETTINGS_H
#define QOV_MODULES_MQTT_SETTINGS_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "modules/mqtt/operation_list.h"

namespace qov::mqtt {

inline constexpr const char* kSection = "MQTT";

/// What an event's payload is.
enum class EventForm { kJson, kBytes };

/// What is about requests from the broker.
struct RequestSettings {
  OperationList allowed;
  std::chrono::milliseconds timeout{5000};  ///< of a request that says none
  std::size_t pending = 256;                ///< at once
};
constexpr std::chrono::milliseconds kLongestRequest{600000};

/// Section "MQTT" of the process configuration file; docs/mqtt.md explains the keys.
struct Settings {
  unsigned int moduleId = 251;

  std::string host;
  int port = 8883;
  bool tls = true;
  std::string caFile;  ///< empty: the system's certificates
  std::string certFile;
  std::string keyFile;
  std::string user;  ///< empty: none
  std::string passwordFile;
  std::string node;
  std::chrono::seconds keepAlive{60};
  std::chrono::seconds session{86400};   ///< so long the broker keeps it without a connection
  std::chrono::seconds longestWait{60};  ///< between two tries to connect

  EventForm eventForm = EventForm::kJson;
  OperationList copied;  ///< whose messages to other modules are events, too
  std::string outbox;
  std::uint64_t outboxRows = 100000;
  std::uint64_t outboxBytes = std::uint64_t{64} << 20U;

  RequestSettings requests;

  std::vector<std::string> unknownKeys;
};

/// Throws CQOV_Exception with file, key and value of what cannot be meant.
Settings readSettings();

}  // namespace qov::mqtt

#endif
