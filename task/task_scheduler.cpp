#include <ace/Guard_T.h>
#include <ace/OS_NS_time.h>
#include <qovplatform/platform_guard.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_task_mgr.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <new>
#include <optional>
#include <utility>

#include "diag/log_ids.h"
#include "module/module_library.h"
#include "task/doorbell.h"
#include "task/ending_thread.h"
#include "task/later_answer.h"
#include "task/message_block.h"
#include "task/module_counters.h"
#include "task/start_task.h"
#include "task/started_tasks.h"
#include "task/task_queue.h"
#include "task/thread_groups.h"
#include "task/worker_pool.h"

namespace {

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

/// Null when the module makes none or throws.
std::unique_ptr<CQOV_Task> makeWorker(CQOV_TaskMgr& mgr) {
  try {
    return std::unique_ptr<CQOV_Task>(mgr.createTask());
  } catch (...) {
    qov::passOnEndOfThread();
    return nullptr;
  }
}

}  // namespace

std::atomic<unsigned long long> CQOV_TaskScheduler::oAtomicSerialNum_{0};

CQOV_TaskScheduler::CQOV_TaskScheduler(CQOV_TaskMgr* mgr, unsigned int poolSize)
    : CQOV_Task(mgr), pool_(std::make_unique<WorkerPool>(*this, poolSize)) {
  makesRoom_ = true;
}

CQOV_TaskScheduler::~CQOV_TaskScheduler() = default;

int CQOV_TaskScheduler::createPool() {
  return pool_->createPool();
}

int CQOV_TaskScheduler::return_to_work(CQOV_Task* worker) {
  return pool_->return_to_work(worker);
}

int CQOV_TaskScheduler::handle_mb_data(ACE_Message_Block* mb) {
  return pool_->handle_mb_data(mb);
}

bool CQOV_TaskScheduler::take(int type, ACE_Message_Block* mb) {
  return pool_->take(type, mb);
}

bool CQOV_TaskScheduler::waitForPool(unsigned int seconds) {
  return pool_->waitForPool(seconds);
}

CQOV_TaskScheduler::WorkerPool::WorkerPool(CQOV_TaskScheduler& scheduler, unsigned int poolSize)
    : scheduler_(scheduler), poolSize_(poolSize), idleSignal_(std::make_shared<qov::Doorbell>()) {}

CQOV_TaskScheduler::WorkerPool::~WorkerPool() {
  // Only where the scheduler thread was cancelled in its wait.
  qov::releaseWithPackage(waiting_);
}

int CQOV_TaskScheduler::svc() {
  CQOVDebugKitGuard log(qov::kPublicKit, "virtual int CQOV_TaskScheduler::svc()");
  const int created = createPool();
  pool_->poolStands();
  if (created != 0) {
    log.error(qov::log_id::kPoolFailed, __FUNCTION__, __LINE__,
              "Module(%d) create thread pool failed.", taskMgr()->moduleId());
    return -1;
  }
  const qov::RingCollector collector;
  for (;;) {
    ACE_Message_Block* block = nullptr;
    if (msg_queue()->dequeue_head(block) == -1) {
      continue;
    }
    switch (block->msg_type()) {
      case ACE_Message_Block::MB_DATA:
        handle_mb_data(block);
        break;
      case ACE_Message_Block::MB_STOP:
        log.info(qov::log_id::kSchedulerStop, __FUNCTION__, __LINE__,
                 "Scheduler thread(%d) received stop-message!", taskMgr()->moduleId());
        block->release();
        return 0;
      default:
        log.warn(qov::log_id::kSchedulerUnknownType, __FUNCTION__, __LINE__,
                 "Scheduler thread(%d) received unknown message type!", taskMgr()->moduleId());
        block->release();
        break;
    }
  }
}

void CQOV_TaskScheduler::notifyExit() {
  CQOVDebugKitGuard log(qov::kPublicKit, "virtual void CQOV_TaskScheduler::notifyExit()");
  CQOV_Task::notifyExit();
  pool_->stop();
}

void CQOV_TaskScheduler::WorkerPool::stop() {
  ACE_Guard<ACE_Thread_Mutex> guard(poolLock_);
  stopping_ = true;
  ring(idleSignal_);
}

int CQOV_TaskScheduler::putMsg(int type, ACE_Message_Block* mb, ACE_Time_Value* timeout) {
  const int result = CQOV_Task::putMsg(type, mb, timeout);
  pool_->wakeScheduler();
  return result;
}

void CQOV_TaskScheduler::WorkerPool::wakeScheduler() {
  ring(idleSignal_);
}

int CQOV_TaskScheduler::WorkerPool::createPool() {
  CQOVDebugKitGuard log(qov::kPublicKit, "int CQOV_TaskScheduler::createPool()");
  for (unsigned int i = 0; i < poolSize_ && !toldToStop(); ++i) {
    std::unique_ptr<CQOV_Task> worker = makeWorker(*scheduler_.taskMgr());
    if (worker == nullptr) {
      log.warn(qov::log_id::kWorkerNotMade, __FUNCTION__, __LINE__,
               "Failed to create task in module %d!", scheduler_.taskMgr()->moduleId());
      break;
    }
    qov::ModuleLibrary::check(*scheduler_.taskMgr(), *worker);
    if (!addWorker(std::move(worker))) {
      log.warn(qov::log_id::kWorkerNotStarted, __FUNCTION__, __LINE__,
               "Failed to start a worker thread in module %d!", scheduler_.taskMgr()->moduleId());
      break;
    }
  }
  log.info(qov::log_id::kPoolStands, __FUNCTION__, __LINE__,
           "Module(%d) thread inited, threads size is %u!", scheduler_.taskMgr()->moduleId(),
           poolSize_);
  return 0;
}

bool CQOV_TaskScheduler::WorkerPool::addWorker(std::unique_ptr<CQOV_Task> worker) {
  worker->grp_id(scheduler_.taskMgr()->gid());
  if (worker->thr_count() > 0) {
    // Its own factory has started it: like any other that is handed to the pool.
    return return_to_work(worker.release()) == 0;
  }
  CQOV_Task* const task = worker.get();
  std::size_t number = 0;
  {
    ACE_Guard<ACE_Thread_Mutex> guard(poolLock_);
    if (!adopt(task)) {
      throw std::bad_alloc();
    }
    static_cast<void>(worker.release());
    number = workers_.size();
    tellCounters();
  }
  ACE_thread_t thread = 0;
  if (qov::startTask(*task, scheduler_.taskMgr()->gid(),
                     {scheduler_.taskMgr()->moduleId(), "worker", number}, thread) != 0) {
    dropWorker(task);
    return false;
  }
  // A worker that is busy with nothing yet is as idle before its thread runs as after.
  return_to_work(task);
  return true;
}

void CQOV_TaskScheduler::WorkerPool::dropWorker(CQOV_Task* worker) {
  std::unique_ptr<CQOV_Task> dropped;
  ACE_Guard<ACE_Thread_Mutex> guard(poolLock_);
  // Its own factory may have called it idle.
  idleTasks_.erase(std::remove(idleTasks_.begin(), idleTasks_.end(), worker), idleTasks_.end());
  const auto place = std::find_if(workers_.begin(), workers_.end(),
                                  [worker](const auto& one) { return one.get() == worker; });
  dropped = std::move(*place);
  workers_.erase(place);
  tellCounters();
}

bool CQOV_TaskScheduler::WorkerPool::toldToStop() {
  ACE_Guard<ACE_Thread_Mutex> guard(poolLock_);
  return stopping_;
}

void CQOV_TaskScheduler::WorkerPool::poolStands() {
  const std::lock_guard<std::mutex> lock(standsLock_);
  stands_ = true;
  standsSignal_.notify_all();
}

bool CQOV_TaskScheduler::WorkerPool::waitForPool(unsigned int seconds) {
  std::unique_lock<std::mutex> lock(standsLock_);
  return standsSignal_.wait_for(lock, std::chrono::seconds(seconds), [this] { return stands_; });
}

int CQOV_TaskScheduler::WorkerPool::return_to_work(CQOV_Task* worker) {
  CQOVDebugKitGuard log(qov::kPublicKit, "int CQOV_TaskScheduler::return_to_work(CQOV_Task*)");
  if (worker == nullptr) {
    log.warn(qov::log_id::kReturnNull, __FUNCTION__, __LINE__, "Null pointer of pWorkerTask!");
    return -1;
  }
  bool tooLate = false;
  {
    // Rings before notifyExit(), which may join the thread that it wakes.
    const qov::RingCollector untilUnlocked;
    ACE_Guard<ACE_Thread_Mutex> guard(poolLock_);
    if (!worker->makesRoom_) {
      if (!adopt(worker)) {
        return -1;
      }
      tooLate = !worker->startedTasks_->add(worker);
    }
    if (!worker->idle_) {
      worker->idle_ = true;
      idleTasks_.push_back(worker);
      serveBacklog(log);
      tellCounters();
    }
  }
  if (tooLate) {
    qov::tellToEnd(*worker);
  }
  return 0;
}

bool CQOV_TaskScheduler::WorkerPool::adopt(CQOV_Task* worker) {
  if (worker->makesRoom_) {
    return true;
  }
  try {
    // Room for every worker, so that one that returns needs no memory.
    idleTasks_.reserve(workers_.size() + 1);
    workers_.emplace_back();
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return false;
  }
  workers_.back().reset(worker);
  worker->makesRoom_ = true;
  return true;
}

CQOV_Task* CQOV_TaskScheduler::WorkerPool::takeIdle() {
  if (idleTasks_.empty()) {
    return nullptr;
  }
  CQOV_Task* const worker = idleTasks_.front();
  idleTasks_.erase(idleTasks_.begin());
  worker->idle_ = false;
  tellCounters();
  return worker;
}

void CQOV_TaskScheduler::WorkerPool::tellCounters() {
  scheduler_.counters().workers_.set(workers_.size());
  scheduler_.counters().idle_.set(idleTasks_.size());
}

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
    scheduler_.counters().drop(QOVDropReason::kStopped, qov::tracedIn(*block));
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
  if (!idleTasks_.empty() && scheduler_.taskQueue().isAwaited() && giveToIdleWorker(mb)) {
    return true;
  }
  // With the lock held, and without a ring for a thread that stays in handle_mb_data(): a worker
  // that returns must find it.
  return scheduler_.CQOV_Task::putMsg(type, mb, nullptr) != -1;
}

bool CQOV_TaskScheduler::WorkerPool::giveToIdleWorker(ACE_Message_Block* mb) {
  while (CQOV_Task* const worker = takeIdle()) {
    // Refused by a worker that was told to end on its own: the next one takes the message.
    if (worker->taskQueue().offer(mb)) {
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
    next = scheduler_.taskQueue().takeData();
  }
  if (next != nullptr) {
    // Nobody else is idle: who had been so would have taken what waited.
    beginWait(log, next);
  } else if (!scheduler_.taskQueue().is_empty()) {
    ring(idleSignal_);
  }
}

void CQOV_TaskScheduler::WorkerPool::beginWait(CQOVDebugKitGuard& log, ACE_Message_Block* mb) {
  waiting_ = mb;
  scheduler_.counters().waitingForWorker_.set(1);
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
  scheduler_.counters().waitingForWorker_.set(0);
  return std::exchange(waiting_, nullptr);
}
