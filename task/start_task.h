#ifndef QOV_TASK_START_TASK_H
#define QOV_TASK_START_TASK_H

#include <qovpub/qov_task.h>

#include <cstddef>

#include "task/thread_name.h"

namespace qov {

/// Stack of every thread of a module: 1 MiB.
constexpr std::size_t kThreadStackBytes = 1048576;

/// Starts the one thread of `task` in the thread group of module `gid` under `name`; `thread` is
/// its id then. Returns 0, or -1 when it could not be started.
int startTask(CQOV_Task& task, int gid, const ThreadName& name, ACE_thread_t& thread);

}  // namespace qov

#endif
