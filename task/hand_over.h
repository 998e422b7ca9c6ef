#ifndef QOV_TASK_HAND_OVER_H
#define QOV_TASK_HAND_OVER_H

#include <ace/Time_Value.h>
#include <qovpub/qov_leader_task.h>
#include <qovpub/qov_task.h>

#include <memory>

class CQOVDebugKitGuard;

namespace qov {

/// Hands the request `req` of `task` over to the leader, for whose response `waiter` waits: owned
/// by the leader then. `timeout` is relative. The calling thread then does the leaders' work if it
/// `mayLead`. Returns 0, or -1 with errno and `req` treated as send() does.
int handOverRequest(CQOV_Task& task, CQOVDebugKitGuard& log, const CQOV_MsgPackage* req,
                    std::unique_ptr<TimeoutDesc> waiter, const ACE_Time_Value* timeout,
                    bool freeReq, bool mayLead);

/// Whether the calling thread is that of `task`, a worker of the pool.
bool isWorkerHere(const CQOV_Task& task);

}  // namespace qov

#endif
