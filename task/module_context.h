#ifndef QOV_TASK_MODULE_CONTEXT_H
#define QOV_TASK_MODULE_CONTEXT_H

#include <qovpub/qov_leader_task.h>
#include <qovpub/qov_stats.h>
#include <qovpub/qov_task_mgr.h>

#include <atomic>
#include <memory>

#include "task/copy_choice.h"
#include "task/module_counters.h"
#include "task/started_tasks.h"

struct link_map;

namespace qov {

/// What the runtime keeps of one module, for its task manager.
struct ModuleContext {
  explicit ModuleContext(unsigned int moduleId) : counters_(moduleId) {}

  static ModuleContext& of(const CQOV_TaskMgr& manager) { return *manager.context_; }
  /// Null without memory for it.
  static CQOV_Leader_Task* leaderOf(const CQOV_TaskMgr& manager) { return manager.leader(); }
  /// From init() until RunningManagers has forgotten it.
  static QOVModuleStats statsOf(const CQOV_TaskMgr& manager);

  // Constant after construction. The tasks share what they are noted in.
  const std::shared_ptr<StartedTasks> startedTasks_ = std::make_shared<StartedTasks>();
  ModuleCounters counters_;
  std::unique_ptr<CQOV_Leader_Task> leader_{};

  // The loading thread's, which moves it into the loader's table.
  CopyChoice copies_{};

  // The library that the loader opened; null without a loader, or when it has told of a class that
  // comes from elsewhere.
  std::atomic<const link_map*> library_{nullptr};

  // Whoever stops the manager: the loading thread, or the thread that calls exit(). Never both at a
  // time (RunningManagers::beginStop()).
  bool stopped_ = false;
  // Set by who calls stop() before the manager is deleted.
  bool stoppedBeforeDeleted_ = false;
};

}  // namespace qov

#endif
