#include "diag/log_level.h"

#include "diag/ace_private.h"

namespace qov {

struct ProcessMask {
  using Type = u_long*;
  friend constexpr Type address(ProcessMask);
};

template struct Reach<ProcessMask, &ACE_Log_Msg::process_priority_mask_>;

const u_long* const kProcessMask = address(ProcessMask());

const char* lowestLevelOn() {
  for (const LogLevel* const level : {&kTrace, &kDebug, &kInfo, &kWarn, &kError}) {
    if (isOn(*level)) {
      return level->tag;
    }
  }
  return "none";
}

}  // namespace qov
