#ifndef QOV_TASK_TASK_ROSTER_H
#define QOV_TASK_TASK_ROSTER_H

#include <mutex>
#include <vector>

class CQOV_Task;

namespace qov {

/// The tasks of one module that were started, in that order: whom to tell when the module stops and
/// whose threads to join. Thread groups alone do not tell, since ACE and other modules may use the
/// same number.
///
/// Thread: any.
/// Owns:   nothing; a task leaves the roster in its destructor.
class TaskRoster {
 public:
  /// Adds a started task, once. False when the module is stopping already: the task has to be told
  /// to end by the caller.
  bool add(CQOV_Task* task);

  void remove(const CQOV_Task* task);

  /// From now on the module is stopping; returns the tasks to tell.
  std::vector<CQOV_Task*> beginStop();

  std::vector<CQOV_Task*> tasks() const;

 private:
  mutable std::mutex mutex_;
  // Guarded by mutex_.
  std::vector<CQOV_Task*> tasks_;
  bool stopping_ = false;
};

}  // namespace qov

#endif
