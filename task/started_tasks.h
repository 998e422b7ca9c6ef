#ifndef QOV_TASK_STARTED_TASKS_H
#define QOV_TASK_STARTED_TASKS_H

#include <cstddef>
#include <mutex>
#include <optional>

class CQOV_Task;

namespace qov {

struct TaskContext;

/// The tasks of one module that were started, in that order: whom to tell when the module stops and
/// whose threads to join. The thread group alone does not tell: another manager of the same id may
/// run in it, and tasks that were handed to the pool may run outside.
///
/// A list through the tasks themselves, walked one task at a time: whoever is told or joined may
/// start or end others meanwhile.
///
/// Thread: any.
/// Owns:   nothing; a task removes itself in its destructor.
class StartedTasks {
 public:
  /// Adds a started task, or notes that it was started again. False when the module is stopping
  /// already: the task has to be told to end by the caller.
  bool add(CQOV_Task* task);

  void remove(CQOV_Task* task);

  /// The module's threads may run in the thread group `group` from now on.
  void enterGroup(int group);

  /// The module's tasks have ended. True if the module was in its group and no other manager is in
  /// there now: the threads that are left there are the module's own.
  bool leaveGroup();

  /// From now on the module is stopping.
  void beginStop();

  /// A task to tell of the stop, each one once; null when all have been told.
  CQOV_Task* nextToTell();

  /// A task whose threads to join, each one once; null when no more are left.
  CQOV_Task* nextToJoin();

 private:
  /// Where the pointer to `task` stands, or the null at the end.
  CQOV_Task** placeOf(const CQOV_Task* task);
  /// Sets the mark of the first task without it; null when all have it.
  CQOV_Task* markNext(bool TaskContext::*mark);

  std::mutex mutex_;
  // Guarded by mutex_, as the links and the marks in the tasks.
  CQOV_Task* first_ = nullptr;
  bool stopping_ = false;

  // Guarded by the lock of the groups' counts.
  std::optional<std::size_t> group_;
};

}  // namespace qov

#endif
