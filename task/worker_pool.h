#ifndef QOV_TASK_WORKER_POOL_H
#define QOV_TASK_WORKER_POOL_H

#include <ace/Thread_Mutex.h>
#include <qovpub/qov_task_scheduler.h>

#include <condition_variable>
#include <ctime>
#include <memory>
#include <mutex>
#include <vector>

class CQOVDebugKitGuard;

namespace qov {
class Doorbell;
}  // namespace qov

/// The workers of one module, and the message that waits for one of them. Operations with a name of
/// the scheduler's are the scheduler's, and traced as such.
///
/// Thread, errors: as the scheduler.
/// Owns:   the workers, and what waits.
///
/// Hidden: a nested class would be shown to the library's users as the one around it is.
class __attribute__((visibility("hidden"))) CQOV_TaskScheduler::WorkerPool {
 public:
  WorkerPool(CQOV_TaskScheduler& scheduler, unsigned int poolSize);
  ~WorkerPool();
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  int createPool();
  int return_to_work(CQOV_Task* worker);
  int handle_mb_data(ACE_Message_Block* mb);
  bool take(int type, ACE_Message_Block* mb);
  /// Has the scheduler thread look whether it may leave the wait in handle_mb_data().
  void wakeScheduler();
  /// Ends a wait for an idle worker, now and from now on.
  void stop();
  /// From now on waitForPool() does not wait.
  void poolStands();
  bool waitForPool(unsigned int seconds);

 private:
  bool addWorker(std::unique_ptr<CQOV_Task> worker);
  void dropWorker(CQOV_Task* worker);
  bool toldToStop();

  // With poolLock_ held.
  /// Makes `worker` one of the pool, which owns it then, unless it is one already. False, with
  /// errno ENOMEM and `worker` still the caller's, without memory.
  bool adopt(CQOV_Task* worker);
  /// The worker that has been idle for longest, no longer on the list; null when nobody is.
  CQOV_Task* takeIdle();
  void tellCounters();
  /// False, and `mb` still the caller's, when nobody is idle.
  bool giveToIdleWorker(ACE_Message_Block* mb);
  /// Gives what waits to the worker that has become idle, on its thread: it goes on at once, and no
  /// thread is woken in between. What stands behind that in the queue waits next; the scheduler
  /// thread is woken for anything but a message.
  void serveBacklog(CQOVDebugKitGuard& log);
  /// For what no worker takes before the stop, without poolLock_: a continuation runs here, all
  /// else is dropped. Returns -1 then.
  int endUntaken(ACE_Message_Block* mb);
  void beginWait(CQOVDebugKitGuard& log, ACE_Message_Block* mb);
  /// What has waited.
  ACE_Message_Block* endWait(CQOVDebugKitGuard& log);

  // Constant after construction.
  CQOV_TaskScheduler& scheduler_;
  const unsigned int poolSize_;

  /// Wakes the scheduler thread where it waits for an idle worker.
  const std::shared_ptr<qov::Doorbell> idleSignal_;

  ACE_Thread_Mutex poolLock_;
  // Guarded by poolLock_.
  std::vector<std::unique_ptr<CQOV_Task>> workers_;
  /// Longest idle first, with room for every worker. A plain vector: pools are small.
  std::vector<CQOV_Task*> idleTasks_;
  bool stopping_ = false;
  /// Whether the scheduler thread is in the wait in handle_mb_data().
  bool watchesWaits_ = false;
  /// The message that waits for an idle worker, its number and since when; null while none does.
  ACE_Message_Block* waiting_ = nullptr;
  unsigned long long waitSerial_ = 0;
  time_t waitBegin_ = 0;

  std::mutex standsLock_;
  std::condition_variable standsSignal_;
  // Guarded by standsLock_.
  bool stands_ = false;
};

#endif
