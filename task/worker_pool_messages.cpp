#include <ace/Guard_T.h>
#include <ace/OS_NS_time.h>
#include <qovplatform/platform_guard.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_task_mgr.h>

#include <chrono>
#include <optional>
#include <utility>

#include "diag/log_ids.h"
#include "task/doorbell.h"
#include "task/later_answer.h"
#include "task/message_block.h"
#include "task/task_context.h"
#include "task/worker_pool.h"

// Which message which worker gets.

namespace {

using qov::TaskContext;

/// Waits for an idle worker that are worth an info line: every so many, and those longer than this.
constexpr unsigned long long kNotedWaits = 500;
constexpr time_t kLongWaitSeconds = 10;

/// Of the watch over one wait for a worker.
constexpr unsigned int kWatchKind = 5;
constexpr unsigned int kWatchLevel = 1;
constexpr unsigned int kWatchSeconds = 3600;

/// While returning workers serve the backlog, one wait follows another and the scheduler thread
/// sleeps. So often it looks whether it is still the same wait that it has a watch set on, and goes
/// back to its queue when nothing waits any more.
constexpr std::chrono::seconds kWatchedAnew{1};

}  // namespace

int CQOV_TaskScheduler::WorkerPool::handle_mb_data(ACE_Message_Block* mb) {
  CQOVDebugKitGuard log(qov::kPublicKit,
                        "int CQOV_TaskScheduler::handle_mb_data(ACE_Message_Block*)");
  std::optional<FowGuard> watch(std::in_place, kWatchKind, kWatchLevel, kWatchSeconds);
  ACE_Guard<ACE_Thread_Mutex> guard(poolLock_);
  if (giveToIdleWorker(mb)) {
    return 0;
  }
  if (stopping_) {
    guard.release();
    return endUntaken(mb);
  }
  beginWait(log, mb);
  watchesWaits_ = true;
  for (unsigned long long watched = waitSerial_; waiting_ != nullptr && !stopping_;) {
    guard.release();
    idleSignal_->wait(qov::Doorbell::Clock::now() + kWatchedAnew);
    guard.acquire();
    if (std::exchange(watched, waitSerial_) != waitSerial_) {
      watch.emplace(kWatchKind, kWatchLevel, kWatchSeconds);
    }
  }
  watchesWaits_ = false;
  if (waiting_ == nullptr) {
    return 0;
  }
  ACE_Message_Block* const untaken = endWait(log);
  guard.release();
  return endUntaken(untaken);
}

int CQOV_TaskScheduler::WorkerPool::endUntaken(ACE_Message_Block* mb) {
  const qov::BlockPtr block(mb);
  const std::unique_ptr<CQOV_MsgPackage> pkg(qov::packageOf(*block));
  // A continuation may wait for a thread that it wakes.
  qov::endCollecting();
  const bool hasRun = pkg != nullptr && qov::LaterAnswer::run(*pkg, scheduler_);
  if (!hasRun) {
    TaskContext::countersOf(scheduler_).drop(QOVDropReason::kStopped, qov::tracedIn(*block));
  }
  return hasRun ? 0 : -1;
}

bool CQOV_TaskScheduler::WorkerPool::take(int type, ACE_Message_Block* mb) {
  CQOVDebugKitGuard log(qov::kPublicKit, "bool CQOV_TaskScheduler::take(int, ACE_Message_Block*)");
  const qov::RingCollector untilUnlocked;
  ACE_Guard<ACE_Thread_Mutex> guard(poolLock_);
  if (watchesWaits_ && waiting_ == nullptr && !stopping_) {
    // The last of what had to wait is gone, and its thread is still there for the next.
    if (!giveToIdleWorker(mb)) {
      beginWait(log, mb);
    }
    return true;
  }
  // What the scheduler thread takes out of its queue is given away, or waits, before it waits there
  // again. Only the caller could put something in meanwhile that must come first.
  if (!idleTasks_.empty() && TaskContext::of(scheduler_).queue_->isAwaited() &&
      giveToIdleWorker(mb)) {
    return true;
  }
  // With the lock held, and without a ring for a thread that stays in handle_mb_data(): a worker
  // that returns must find it.
  return scheduler_.CQOV_Task::putMsg(type, mb, nullptr) != -1;
}

bool CQOV_TaskScheduler::WorkerPool::giveToIdleWorker(ACE_Message_Block* mb) {
  while (CQOV_Task* const worker = takeIdle()) {
    // Refused by a worker that was told to end on its own: the next one takes the message.
    if (TaskContext::of(*worker).queue_->offer(mb)) {
      return true;
    }
  }
  return false;
}

void CQOV_TaskScheduler::WorkerPool::serveBacklog(CQOVDebugKitGuard& log) {
  if (waiting_ == nullptr || stopping_) {
    return;
  }
  ACE_Message_Block* next = endWait(log);
  if (giveToIdleWorker(next)) {
    next = TaskContext::of(scheduler_).queue_->takeData();
  }
  if (next != nullptr) {
    // Nobody else is idle: who had been so would have taken what waited.
    beginWait(log, next);
  } else if (!TaskContext::of(scheduler_).queue_->is_empty()) {
    ring(idleSignal_);
  }
}

void CQOV_TaskScheduler::WorkerPool::beginWait(CQOVDebugKitGuard& log, ACE_Message_Block* mb) {
  waiting_ = mb;
  TaskContext::countersOf(scheduler_).waitingForWorker_.set(1);
  waitSerial_ = oAtomicSerialNum_.load(std::memory_order_relaxed);
  oAtomicSerialNum_.store(waitSerial_ + 1, std::memory_order_relaxed);
  waitBegin_ = ACE_OS::time();
  log.debug(qov::log_id::kWaitBegins, __FUNCTION__, __LINE__,
            "wait worker thread is empty begin num(%d), time(%d)", static_cast<int>(waitSerial_),
            static_cast<int>(waitBegin_));
}

ACE_Message_Block* CQOV_TaskScheduler::WorkerPool::endWait(CQOVDebugKitGuard& log) {
  const time_t end = ACE_OS::time();
  log.debug(qov::log_id::kWaitEnds, __FUNCTION__, __LINE__,
            "wait worker thread is empty end wait num(%d), time(%d).",
            static_cast<int>(waitSerial_), static_cast<int>(end));
  if (waitSerial_ % kNotedWaits == 0 || end - waitBegin_ > kLongWaitSeconds) {
    log.info(qov::log_id::kLongWait, __FUNCTION__, __LINE__,
             "wait worker thread is empty end wait num(%d), time(%llu).",
             static_cast<int>(waitSerial_), static_cast<unsigned long long>(end - waitBegin_));
  }
  TaskContext::countersOf(scheduler_).waitingForWorker_.set(0);
  return std::exchange(waiting_, nullptr);
}
