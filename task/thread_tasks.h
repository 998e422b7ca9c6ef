#ifndef QOV_TASK_THREAD_TASKS_H
#define QOV_TASK_THREAD_TASKS_H

#include <ace/Functor.h>
#include <ace/Hash_Map_Manager_T.h>
#include <ace/Null_Mutex.h>
#include <ace/OS_NS_Thread.h>
#include <ace/Thread_Mutex.h>

#include <set>
#include <utility>

class CQOV_Task;

namespace qov {

/// Which task owns which thread of the process.
///
/// Threads are bound by who started them, until they end: the system reuses thread ids. The lock is
/// never held while anything else is locked, since ACE ends some threads with its own lock held.
///
/// Thread: any.
/// Owns:   nothing. Never destroyed, since threads may still end while the process exits.
class ThreadTasks {
 public:
  static ThreadTasks& instance();

  ThreadTasks(const ThreadTasks&) = delete;
  ThreadTasks& operator=(const ThreadTasks&) = delete;

  /// Binds `thread`, which was started for `task`, to it, unless it has ended already.
  void bindStarted(ACE_thread_t thread, CQOV_Task* task);

  /// Binds `thread` to `task`, whoever it belonged to.
  void bind(ACE_thread_t thread, CQOV_Task* task);

  /// Forgets `thread` of `task`, which ends.
  void unbind(ACE_thread_t thread, const CQOV_Task* task);

  /// Forgets every thread of `task`.
  void unbindAll(const CQOV_Task* task);

  /// The task of `thread`, or null.
  CQOV_Task* find(ACE_thread_t thread);

 private:
  using Map = ACE_Hash_Map_Manager_Ex<ACE_thread_t, CQOV_Task*, ACE_Hash<unsigned long>,
                                      ACE_Equal_To<ACE_thread_t>, ACE_Null_Mutex>;

  ThreadTasks() = default;

  ACE_Thread_Mutex lock_;
  // Guarded by lock_.
  Map tasks_;
  // Threads that ended before they were bound.
  std::set<std::pair<ACE_thread_t, const CQOV_Task*>> endedEarly_;
};

}  // namespace qov

#endif
