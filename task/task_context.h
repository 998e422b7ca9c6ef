#ifndef QOV_TASK_TASK_CONTEXT_H
#define QOV_TASK_TASK_CONTEXT_H

#include <qovpub/qov_task.h>

#include <atomic>
#include <memory>

#include "task/module_counters.h"
#include "task/response_slot.h"
#include "task/started_tasks.h"
#include "task/task_queue.h"

namespace qov {

/// What the runtime keeps of one task.
struct TaskContext {
  static TaskContext& of(const CQOV_Task& task) { return *task.context_; }
  /// Those of the module, which are there once the task is started.
  static ModuleCounters& countersOf(const CQOV_Task& task);

  TaskContext(const CQOV_TaskMgr* mgr, std::unique_ptr<TaskQueue> queue);

  // Constant after construction.
  const std::unique_ptr<TaskQueue> queue_;
  // The manager's; null without a manager.
  const std::shared_ptr<StartedTasks> startedTasks_;
  // Where responses of a static scheduled task arrive; null for every other task.
  std::unique_ptr<ResponseSlot> slot_{};

  // True from the first activate() on.
  std::atomic<bool> started_{false};
  // While a thread is in the send() that waits.
  std::atomic<bool> sending_{false};
  // The errno of that send(), left by the leader before it ends the wait; 0: nobody has said why.
  std::atomic<int> cause_{0};

  // True for the leader, the scheduler and what its pool owns: their threads make room in the
  // module. So a worker without it is not in the pool yet. Changed under the pool's lock.
  std::atomic<bool> makesRoom_{false};
  // Guarded by the pool's lock.
  bool idle_ = false;
  // Guarded by the lock of startedTasks_.
  CQOV_Task* nextStarted_ = nullptr;
  bool told_ = false;
  bool joined_ = false;
};

}  // namespace qov

#endif
