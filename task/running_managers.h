#ifndef QOV_TASK_RUNNING_MANAGERS_H
#define QOV_TASK_RUNNING_MANAGERS_H

#include <qovpub/qov_stats.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "task/leader_turn.h"

class CQOV_TaskMgr;

namespace qov {

/// A leader as who watches it sees it.
struct LeaderLook {
  unsigned int moduleId;
  std::string name;
  LeaderProgress progress;
};

/// The task managers whose threads may run, those of the module loader included, and those that end
/// while others wait for it. What is left when the process exits is stopped then
/// (module/module_shutdown.h).
///
/// Thread: any.
/// Owns:   nothing.
/// Errors: add(), visit(), stats() and leaders() throw std::bad_alloc.
class RunningManagers {
 public:
  static void add(CQOV_TaskMgr& manager);

  /// For a manager that is about to stop. Returns when nobody else is stopping it.
  static void beginStop(CQOV_TaskMgr& manager);

  /// For a manager that has stopped. Nobody visits it any more.
  static void remove(CQOV_TaskMgr& manager);

  static bool any();

  /// Calls `visit` with each of them, in the order of their ids, and whether it stops. All of them
  /// have their leaders meanwhile; `visit` must not wait.
  static void visit(const std::function<void(const CQOV_TaskMgr&, bool stops)>& visit);

  /// Their figures, in the same order.
  static std::vector<QOVModuleStats> stats();

  /// How far the leaders of those are that do not stop.
  static std::vector<LeaderLook> leaders();

  /// Tells all of them that module `id` has ended. Needs no memory.
  static void tellEnded(std::uint8_t id);

  /// Stops them, the one that was added last first. For the exit handler.
  static void stopAll();
};

}  // namespace qov

#endif
