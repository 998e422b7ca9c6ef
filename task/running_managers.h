#ifndef QOV_TASK_RUNNING_MANAGERS_H
#define QOV_TASK_RUNNING_MANAGERS_H

class CQOV_TaskMgr;

namespace qov {

/// The task managers whose threads may run. What is left when the process exits is stopped then:
/// the threads of a module use singletons, ACE's process reactor among them, which exit() destroys.
///
/// Thread: any.
/// Owns:   nothing.
/// Errors: none; a manager for which there is no memory is not stopped at exit.
class RunningManagers {
 public:
  static void add(CQOV_TaskMgr& manager);

  /// For a manager that is about to stop. Returns when nobody else is stopping it.
  static void remove(CQOV_TaskMgr& manager);

 private:
  /// Exit handler. Does nothing on a thread of a module, which cannot join itself.
  static void stopAll();
};

}  // namespace qov

#endif
