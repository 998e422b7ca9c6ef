#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_task_mgr.h>
#include <qovpub/qov_task_scheduler.h>

#include "diag/log_ids.h"
#include "task/doorbell.h"
#include "task/task_context.h"
#include "task/worker_pool.h"

std::atomic<unsigned long long> CQOV_TaskScheduler::oAtomicSerialNum_{0};

CQOV_TaskScheduler::CQOV_TaskScheduler(CQOV_TaskMgr* mgr, unsigned int poolSize)
    : CQOV_Task(mgr), pool_(std::make_unique<WorkerPool>(*this, poolSize)) {
  qov::TaskContext::of(*this).makesRoom_ = true;
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
  // Without memory for its MB_STOP the scheduler goes on, and so does its pool.
  if (qov::TaskContext::of(*this).queue_->isEnding()) {
    pool_->stop();
  }
}

int CQOV_TaskScheduler::putMsg(int type, ACE_Message_Block* mb, ACE_Time_Value* timeout) {
  const int result = CQOV_Task::putMsg(type, mb, timeout);
  pool_->wakeScheduler();
  return result;
}
