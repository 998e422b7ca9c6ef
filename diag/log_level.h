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

/// ACE's process-wide mask of priorities. ACE shows it through a thread's log object only; making
/// one takes ACE's log lock, which a level that is off must not cost.
extern const u_long* const kProcessMask;

inline bool isOn(const LogLevel& level) {
  return (*kProcessMask & level.priority) != 0;
}

/// The tag of the lowest level that is logged.
const char* lowestLevelOn();

}  // namespace qov

#endif
