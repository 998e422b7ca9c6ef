#ifndef QOV_TASK_TASK_QUEUE_H
#define QOV_TASK_TASK_QUEUE_H

#include <ace/Condition_Thread_Mutex.h>
#include <ace/Message_Queue_T.h>
#include <ace/Synch_Traits.h>
#include <ace/Thread_Mutex.h>

#include <atomic>
#include <memory>

#include "task/doorbell.h"
#include "task/module_load.h"

namespace qov {

/// The message queue of a task. Differs from ACE's own in five ways:
///
/// - It wakes its waiter through a Doorbell, after its lock is free, so that a thread that fills
///   many queues can wake their waiters together.
/// - pulse() is not lost when nobody waits yet: it ends the next wait. (ACE's leaves the queue in a
///   state in which the waiter cannot even take the message that arrives next.)
/// - MB_STOP blocks get in however full the queue is.
/// - It can count its bytes into the load of its module.
/// - It frees what is left in it together with the packages.
///
/// Thread: any.
class TaskQueue : public ACE_Message_Queue<ACE_MT_SYNCH> {
 public:
  TaskQueue() = default;
  ~TaskQueue() override;

  int enqueue_tail(ACE_Message_Block* mb, ACE_Time_Value* timeout = nullptr) override;
  int pulse() override;

  /// Forgets a pulse() that nobody has waited for.
  void clearPulse();

  /// As dequeue_head() without time-out, but fails (errno ESHUTDOWN) when the next block is an
  /// MB_STOP, which stays where it is.
  int dequeueBeforeStop(ACE_Message_Block*& mb);

  /// Queues `mb` without waiting, however full the queue is. False, and `mb` still the caller's,
  /// when the queue is closed or an MB_STOP was put in: what stood behind that, nobody would take.
  bool offer(ACE_Message_Block* mb);

  /// The next block if it is an MB_DATA, at once; else null.
  ACE_Message_Block* takeData();

  /// Whether a thread waits for a block and none is here. A queue's only thread has nothing in its
  /// hands then either.
  bool isAwaited();

  /// Counts the queue's bytes into `load` from now on and lifts the queue's own limit: whoever
  /// fills the queue never waits.
  void countInto(const std::shared_ptr<ModuleLoad>& load);

  /// How many of the bytes in the load of the module stand in this queue.
  std::size_t countedBytes() const { return countedBytes_.load(); }

  /// Takes every block out at once, also from a deactivated queue: a list linked by next(), null
  /// when empty.
  ACE_Message_Block* takeAll();

 protected:
  // Every way in and out counts.
  int enqueue_i(ACE_Message_Block* mb) override;
  int enqueue_deadline_i(ACE_Message_Block* mb) override;
  int enqueue_tail_i(ACE_Message_Block* mb) override;
  int enqueue_head_i(ACE_Message_Block* mb) override;
  int dequeue_head_i(ACE_Message_Block*& mb) override;
  int dequeue_prio_i(ACE_Message_Block*& mb) override;
  int dequeue_tail_i(ACE_Message_Block*& mb) override;
  int dequeue_deadline_i(ACE_Message_Block*& mb) override;
  int flush_i() override;

  int wait_not_empty_cond(ACE_Time_Value* timeout) override;
  int signal_dequeue_waiters() override;
  int deactivate_i(int pulse) override;

  /// Queues `mb` without regard to the limit.
  int forceTail(ACE_Message_Block* mb);
  /// As countInto(), and leaves the queue its limit.
  void shareLoad(const std::shared_ptr<ModuleLoad>& load);
  /// As takeAll(), with the queue's lock held.
  ACE_Message_Block* takeAllLocked();

  // Changed under the queue's lock; read by a sender that asks for room.
  std::atomic<std::size_t> countedBytes_{0};

 private:
  using Base = ACE_Message_Queue<ACE_MT_SYNCH>;

  int put(ACE_Message_Block* mb, ACE_Time_Value* timeout, bool force);
  /// Puts `mb` in, with the queue's lock held.
  int putLocked(ACE_Message_Block* mb, ACE_Time_Value* timeout, bool force);
  /// Waits for the bell without the queue's lock, which is held before and after. False when no
  /// ring came until `timeout`, an absolute time of day.
  bool waitForBell(const ACE_Time_Value* timeout);

  /// Tells the load how the queue's bytes have changed since it was told last; hands `result` on.
  int counted(int result);

  // Constant after construction.
  const std::shared_ptr<Doorbell> bell_ = std::make_shared<Doorbell>();

  // Guarded by the queue's lock.
  int waitingThreads_ = 0;
  bool pulsed_ = false;
  bool toldToStop_ = false;
  std::shared_ptr<ModuleLoad> load_;
};

}  // namespace qov

#endif
