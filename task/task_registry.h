#ifndef QOV_TASK_TASK_REGISTRY_H
#define QOV_TASK_TASK_REGISTRY_H

#include <ace/Functor.h>
#include <ace/Guard_T.h>
#include <ace/Hash_Map_Manager_T.h>
#include <ace/Null_Mutex.h>
#include <ace/OS_NS_Thread.h>
#include <ace/Thread_Mutex.h>

#include <cstddef>

class CQOV_Task;

namespace qov {

/// Which task owns which thread of the process.
///
/// Threads are known from the moment their creator has started them until they end: the system
/// reuses thread ids.
///
/// Thread: any. A thread that asks while it is being started waits until its starter has bound it.
/// Owns:   nothing. Never destroyed, since threads may still end while the process exits.
class TaskRegistry {
 public:
  static TaskRegistry& instance();

  TaskRegistry(const TaskRegistry&) = delete;
  TaskRegistry& operator=(const TaskRegistry&) = delete;

  /// Runs `start`, which starts `count` threads of `task`, fills in `threads` and returns 0 on
  /// success, and binds them before any of them can end. Returns what `start` returned.
  template <class Start>
  int bindStarted(CQOV_Task* task, const ACE_thread_t* threads, std::size_t count, Start start) {
    ACE_Guard<ACE_Thread_Mutex> guard(lock_);
    const int result = start();
    for (std::size_t i = 0; result == 0 && i < count; ++i) {
      tasks_.rebind(threads[i], task);
    }
    return result;
  }

  /// Binds `thread` to `task`, whoever it belonged to, if `condition` holds then; no thread is
  /// unbound in between.
  template <class Condition>
  void bindIf(ACE_thread_t thread, CQOV_Task* task, Condition condition) {
    ACE_Guard<ACE_Thread_Mutex> guard(lock_);
    if (condition()) {
      tasks_.rebind(thread, task);
    }
  }

  /// Forgets `thread` if it belongs to `task`.
  void unbind(ACE_thread_t thread, const CQOV_Task* task);

  /// Forgets every thread of `task`.
  void unbindAll(const CQOV_Task* task);

  /// The task of `thread`, or null.
  CQOV_Task* find(ACE_thread_t thread);

 private:
  using Map = ACE_Hash_Map_Manager_Ex<ACE_thread_t, CQOV_Task*, ACE_Hash<unsigned long>,
                                      ACE_Equal_To<ACE_thread_t>, ACE_Null_Mutex>;

  TaskRegistry() = default;

  ACE_Thread_Mutex lock_;
  // Guarded by lock_.
  Map tasks_;
};

}  // namespace qov

#endif
