#ifndef QOV_DIAG_LOG_LEVEL_H
#define QOV_DIAG_LOG_LEVEL_H

#include <ace/Log_Msg.h>

namespace qov {

/// One level of the debug kits: its tag in the record and its ACE priority, whose bit is also the
/// one that is tested in ACE's process-wide mask.
struct LogLevel {
  const char* tag;
  ACE_Log_Priority priority;
};

constexpr LogLevel kTrace{"TRACE", LM_TRACE};
constexpr LogLevel kDebug{"DBG", LM_DEBUG};
constexpr LogLevel kInfo{"INFO", LM_INFO};
constexpr LogLevel kWarn{"WARN", LM_WARNING};
constexpr LogLevel kError{"ERR", LM_ERROR};
constexpr LogLevel kCritical{"CRI", LM_CRITICAL};

/// The calling thread's ACE logging object when `level` is on, else null.
inline ACE_Log_Msg* openLog(const LogLevel& level) {
  ACE_Log_Msg* const log = ACE_Log_Msg::instance();
  const bool on = log != nullptr && (log->priority_mask(ACE_Log_Msg::PROCESS) & level.priority);
  return on ? log : nullptr;
}

}  // namespace qov

#endif
