#ifndef QOV_TASK_SERVE_NEXT_H
#define QOV_TASK_SERVE_NEXT_H

class ACE_Time_Value;
class CQOVDebugKitGuard;
class CQOV_CommonTask;

namespace qov {

/// Serves the next message of `task`, on its own thread, waiting for one until `until`, an absolute
/// time of day; null waits without limit. False when the task is to end.
bool serveNext(CQOV_CommonTask& task, CQOVDebugKitGuard& log, ACE_Time_Value* until);

}  // namespace qov

#endif
