#ifndef QOV_TASK_TASK_QUEUE_H
#define QOV_TASK_TASK_QUEUE_H

#include <ace/Condition_Thread_Mutex.h>
#include <ace/Message_Queue_T.h>
#include <ace/Synch_Traits.h>
#include <ace/Thread_Mutex.h>

#include <atomic>
#include <memory>

#include "task/admission.h"
#include "task/doorbell.h"

namespace qov {

/// The message queue of a task. Differs from ACE's own in five ways:
///
/// - It wakes its waiter through a Doorbell, after its lock is free, so that a thread that fills
///   many queues can wake their waiters together.
/// - pulse() is not lost when nobody waits yet: it ends the next wait. (ACE's leaves the queue in a
///   state in which the waiter cannot even take the message that arrives next.)
/// - MB_STOP blocks get in however full the queue is.
/// - It can count what stands in it into the ledger of its module.
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
  /// when the queue is ending: what stood behind an MB_STOP, nobody would take.
  bool offer(ACE_Message_Block* mb);

  /// Whether the queue is closed or an MB_STOP was put in.
  bool isEnding();

  /// The next block if it is an MB_DATA, at once; else null.
  ACE_Message_Block* takeData();

  /// Whether a thread waits for a block and none is here. A queue's only thread has nothing in its
  /// hands then either.
  bool isAwaited();

  /// Counts what stands in the queue into `ledger` from now on and lifts the queue's own limit:
  /// whoever fills the queue never waits.
  void countInto(const std::shared_ptr<Admission>& ledger);

  /// What of the ledger stands in this queue.
  const std::atomic<QueueLoad>& booked() const { return booked_; }

  /// Takes every block out at once, also from a deactivated queue: a list linked by next(), null
  /// when empty.
  ACE_Message_Block* takeAll();

 protected:
  /// Waits until `mb` may be put in, at most until `timeout`. With the queue's lock held, which is
  /// free while this waits. False, with errno, when it may not.
  virtual bool waitForRoom(const ACE_Message_Block& mb, ACE_Time_Value* timeout);

  int wait_not_empty_cond(ACE_Time_Value* timeout) override;
  int deactivate_i(int pulse) override;
  // Each of ACE's ways in and out ends in one of these three, which tell the ledger; a way out does
  // so at the low water mark and below.
  int signal_dequeue_waiters() override;
  int signal_enqueue_waiters() override;
  int flush_i() override;

  /// As takeAll(), with the queue's lock held.
  ACE_Message_Block* takeAllLocked();

  // Changed under the queue's lock, by the Admission, too, if it is a leader's; read by any thread.
  std::atomic<QueueLoad> booked_{0};
  // Set under the queue's lock; a leader's never changes.
  std::shared_ptr<Admission> admission_;

 private:
  using Base = ACE_Message_Queue<ACE_MT_SYNCH>;

  /// Waits for the bell without the queue's lock, which is held before and after. False when no
  /// ring came until `timeout`, an absolute time of day.
  bool waitForBell(const ACE_Time_Value* timeout);

  /// Tells the ledger what stands in the queue now.
  void book();
  /// As isEnding(), with the queue's lock held.
  bool isEndingLocked() const { return state_ == DEACTIVATED || toldToStop_; }

  // Constant after construction.
  const std::shared_ptr<Doorbell> bell_ = std::make_shared<Doorbell>();

  /// Set under the queue's lock, and cleared by who waits.
  std::atomic<bool> pulsed_{false};

  // Guarded by the queue's lock.
  int waitingThreads_ = 0;
  bool toldToStop_ = false;
};

}  // namespace qov

#endif
