#include "task/worker_pool.h"

#include <ace/Guard_T.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_task_mgr.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <new>
#include <utility>

#include "diag/log_ids.h"
#include "module/module_library.h"
#include "task/doorbell.h"
#include "task/ending_thread.h"
#include "task/message_block.h"
#include "task/start_task.h"
#include "task/task_context.h"
#include "task/thread_groups.h"

namespace {

using qov::TaskContext;

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

CQOV_TaskScheduler::WorkerPool::WorkerPool(CQOV_TaskScheduler& scheduler, unsigned int poolSize)
    : scheduler_(scheduler), poolSize_(poolSize), idleSignal_(std::make_shared<qov::Doorbell>()) {}

CQOV_TaskScheduler::WorkerPool::~WorkerPool() {
  // Only where the scheduler thread was cancelled in its wait.
  qov::releaseWithPackage(waiting_);
}

void CQOV_TaskScheduler::WorkerPool::stop() {
  ACE_Guard<ACE_Thread_Mutex> guard(poolLock_);
  stopping_ = true;
  ring(idleSignal_);
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
    // Its own factory has started it: like any other that is handed to the pool. Not deleted here
    // in any case, since its thread runs.
    if (return_to_work(worker.release()) != 0) {
      throw std::bad_alloc();
    }
    return true;
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
    if (!TaskContext::of(*worker).makesRoom_) {
      if (!adopt(worker)) {
        return -1;
      }
      tooLate = !TaskContext::of(*worker).startedTasks_->add(worker);
    }
    if (!TaskContext::of(*worker).idle_) {
      TaskContext::of(*worker).idle_ = true;
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
  if (TaskContext::of(*worker).makesRoom_) {
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
  TaskContext::of(*worker).makesRoom_ = true;
  return true;
}

CQOV_Task* CQOV_TaskScheduler::WorkerPool::takeIdle() {
  if (idleTasks_.empty()) {
    return nullptr;
  }
  CQOV_Task* const worker = idleTasks_.front();
  idleTasks_.erase(idleTasks_.begin());
  TaskContext::of(*worker).idle_ = false;
  tellCounters();
  return worker;
}

void CQOV_TaskScheduler::WorkerPool::tellCounters() {
  TaskContext::countersOf(scheduler_).workers_.set(workers_.size());
  TaskContext::countersOf(scheduler_).idle_.set(idleTasks_.size());
}
