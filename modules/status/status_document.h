#ifndef QOV_MODULES_STATUS_STATUS_DOCUMENT_H
#define QOV_MODULES_STATUS_STATUS_DOCUMENT_H

#include <json/value.h>
#include <qovpub/qov_stats.h>

#include <array>
#include <chrono>
#include <ctime>

#include "modules/status/server.h"

namespace qov::status {

/// By QOVDropReason.
inline constexpr std::array<const char*, QOVModuleStats::kDropReasons> kDropReasons{
    "noReceiver", "noRoom", "stopped", "nobodyWaits", "invalid", "noMemory", "otherProcess"};

/// What does not change while the process runs.
struct Start {
  std::chrono::steady_clock::time_point instant;
  std::time_t time;
  timespec configurationTime;  ///< of the file; 0 without one
};

/// The start that is now.
Start startNow();

/// What the process does now. docs/operating.md explains the fields.
Json::Value statusDocument(const Start& start, const ClientCounts& clients);

/// The modules that run or stop: id, name and state.
Json::Value moduleList();

/// What an operator wants to know first: stopping (it has not ended yet), full (it takes no more),
/// busy (all of its workers are), working or idle.
const char* stateOf(const QOVModuleStats& stats);

}  // namespace qov::status

#endif
