#include "modules/status/level.h"

#include <ace/Log_Msg.h>

#include <array>
#include <cstddef>

namespace qov::status {
namespace {

constexpr u_long kErrors = LM_ERROR;
constexpr u_long kWarnings = kErrors | LM_WARNING;
constexpr u_long kInfos = kWarnings | LM_INFO | LM_NOTICE;
constexpr u_long kDebugs = kInfos | LM_DEBUG;
constexpr u_long kAll = kDebugs | LM_TRACE;

/// As "LogLevel" sets them: 2 and 3 are the same, and what is beyond errors is off.
constexpr std::array<u_long, kHighestLevel + 1> kPriorities{kAll,   kDebugs,   kInfos,
                                                            kInfos, kWarnings, kErrors};

}  // namespace

int logLevel() {
  const u_long mask = ACE_Log_Msg::instance()->priority_mask(ACE_Log_Msg::PROCESS);
  int level = 0;
  while (level < kHighestLevel && (mask & kAll) != kPriorities[static_cast<std::size_t>(level)]) {
    ++level;
  }
  return level;
}

void setLogLevel(int level) {
  ACE_Log_Msg::instance()->priority_mask(kPriorities[static_cast<std::size_t>(level)],
                                         ACE_Log_Msg::PROCESS);
}

}  // namespace qov::status
