#ifndef QOVPUB_QOV_TASK_SCHEDULER_H
#define QOVPUB_QOV_TASK_SCHEDULER_H

#include <qovpub/qov_export.h>
#include <qovpub/qov_task.h>

#include <atomic>
#include <memory>

/// Hands each message to the next idle worker of the module's pool. Its thread, one per module, is
/// needed only where a message has to wait for a worker.
///
/// Thread: svc(), createPool() and handle_mb_data() on the scheduler's own thread;
///         take() on the leader's; return_to_work() from any thread.
/// Owns:   the workers, from their creation, and what was handed to the pool, from then on,
///         until its destructor, which runs after their threads have been joined. The task manager
///         is borrowed.
/// Errors: by result and log.
class QOV_EXPORT CQOV_TaskScheduler : public CQOV_Task {
 public:
  /// `poolSize` is how many workers createPool() makes. `mgr` makes them and outlives this.
  CQOV_TaskScheduler(CQOV_TaskMgr* mgr, unsigned int poolSize);
  ~CQOV_TaskScheduler() override;

  CQOV_TaskScheduler(const CQOV_TaskScheduler&) = delete;
  CQOV_TaskScheduler& operator=(const CQOV_TaskScheduler&) = delete;

  /// What the scheduler thread does: createPool(), then handle_mb_data() for each block of the
  /// queue until a stop block comes. Returns 0.
  int svc() override;

  /// Also ends a wait for an idle worker; the message that waits for it is dropped.
  void notifyExit() override;

  /// As for every task, and wakes the scheduler thread where it stays after a wait for a worker.
  int putMsg(int type, ACE_Message_Block* mb, ACE_Time_Value* timeout) override;

  /// Creates and starts the workers; fewer when the factory returns null, a thread cannot be
  /// started or the scheduler is told to end meanwhile. Returns 0.
  int createPool();

  /// Puts `worker` at the tail of the idle list, once; while handle_mb_data() waits, `worker` takes
  /// what waits at once. A task that is not of the pool yet
  /// becomes one of it: see CQOV_Task::idle(). 0, or -1 for null, or without memory (errno ENOMEM)
  /// to take a new one into the pool.
  int return_to_work(CQOV_Task* worker);

  /// Hands `mb` to the worker that has been idle for longest, waiting for one as long as it takes;
  /// only a stop ends the wait, and frees `mb` with its package; a continuation runs then. Returns
  /// 0, or -1 when `mb` was dropped. After a wait it stays for up to a second: it need not be woken
  /// for the next one then.
  int handle_mb_data(ACE_Message_Block* mb);

  /// Takes `mb` over from the leader. Hands it to the worker that has been idle for longest, if
  /// there is one and the scheduler holds nothing back that has come before. Else `mb` waits, in
  /// the queue if anything is held back. So messages of one sender keep their order.
  /// False, and `mb` still the caller's, when its queue is closed.
  bool take(int type, ACE_Message_Block* mb);

  /// Waits until createPool() has ended or the scheduler thread has, at most `seconds`.
  bool waitForPool(unsigned int seconds);

  /// Numbers the waits for an idle worker, process-wide. Incremented by a load and a store, not as
  /// one atomic step, whatever the name says: two modules may draw the same number. Kept; it is
  /// only printed and used to thin out log lines.
  static std::atomic<unsigned long long> oAtomicSerialNum_;

 private:
  class WorkerPool;
  const std::unique_ptr<WorkerPool> pool_;
};

#endif
