#include <ace/Thread.h>
#include <ace/Thread_Manager.h>
#include <pthread.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_task.h>

#include <cerrno>
#include <memory>
#include <new>
#include <utility>

#include "diag/log_ids.h"
#include "task/message_block.h"
#include "task/module_context.h"
#include "task/task_context.h"
#include "task/thread_groups.h"
#include "task/thread_name.h"
#include "task/thread_tasks.h"

using qov::TaskContext;
using qov::ThreadTasks;

namespace {

std::shared_ptr<qov::StartedTasks> startedTasksOf(const CQOV_TaskMgr* mgr) {
  return mgr != nullptr ? qov::ModuleContext::of(*mgr).startedTasks_ : nullptr;
}

}  // namespace

namespace qov {

TaskContext::TaskContext(const CQOV_TaskMgr* mgr, std::unique_ptr<TaskQueue> queue)
    : queue_(std::move(queue)), startedTasks_(startedTasksOf(mgr)) {}

ModuleCounters& TaskContext::countersOf(const CQOV_Task& task) {
  return ModuleContext::of(*task.taskMgr()).counters_;
}

}  // namespace qov

CQOV_Task::CQOV_Task(CQOV_TaskMgr* mgr)
    : CQOV_Task(mgr, std::make_unique<TaskContext>(mgr, std::make_unique<qov::TaskQueue>())) {}

CQOV_Task::CQOV_Task(CQOV_TaskMgr* mgr, std::unique_ptr<TaskContext> context)
    : ACE_Task<ACE_MT_SYNCH>(nullptr, context->queue_.get()),
      taskMgr_(mgr),
      context_(std::move(context)) {}

CQOV_Task::~CQOV_Task() {
  ThreadTasks::instance().unbindAll(this);
  if (context_->startedTasks_) {
    context_->startedTasks_->remove(this);
  }
}

void CQOV_Task::notifyExit() {
  CQOVDebugKitGuard log(qov::kPublicKit, "virtual void CQOV_Task::notifyExit()");
  ACE_Message_Block* const stop = qov::makeStopBlock();
  if (stop != nullptr && msg_queue()->enqueue_tail(stop) == -1) {
    // The queue is closed: the task has ended or is about to.
    stop->release();
  }
  log.info(qov::log_id::kTaskToldToExit, __FUNCTION__, __LINE__, "Task will exit!");
  if (stop == nullptr) {
    qov::noteUntold();
    errno = ENOMEM;
  }
}

int CQOV_Task::wakeup() {
  CQOVDebugKitGuard log(qov::kPublicKit, "virtual int CQOV_Task::wakeup()");
  return msg_queue()->pulse();
}

int CQOV_Task::endWait(int cause) {
  context_->cause_ = cause;
  return wakeup();
}

int CQOV_Task::putMsg(int, ACE_Message_Block* mb, ACE_Time_Value* timeout) {
  CQOVDebugKitGuard log(qov::kPublicKit,
                        "virtual int CQOV_Task::putMsg(int, ACE_Message_Block*, ACE_Time_Value*)");
  return msg_queue()->enqueue_tail(mb, timeout) == -1 ? -1 : 0;
}

int CQOV_Task::idle() {
  CQOVDebugKitGuard log(qov::kPublicKit, "virtual int CQOV_Task::idle()");
  return taskMgr_->idle(this);
}

int CQOV_Task::getMsg(ACE_Message_Block*& mb) {
  CQOVDebugKitGuard log(qov::kPublicKit, "virtual int CQOV_Task::getMsg(ACE_Message_Block*&)");
  const int result = context_->queue_->dequeueBeforeStop(mb);
  return result != -1 ? result : context_->queue_->activate();
}

int CQOV_Task::activate(long flags, int n_threads, int force_active, long priority, int grp_id,
                        ACE_Task_Base* task, ACE_hthread_t thread_handles[], void* stack[],
                        size_t stack_size[], ACE_thread_t thread_ids[], const char* thr_name[]) {
  const std::size_t count = n_threads > 0 ? static_cast<std::size_t>(n_threads) : 0;
  const std::unique_ptr<ACE_thread_t[]> ids(new (std::nothrow) ACE_thread_t[count]{});
  if (ids == nullptr) {
    errno = ENOMEM;
    return -1;
  }
  ACE_thread_t* const started = thread_ids != nullptr ? thread_ids : ids.get();
  context_->started_ = true;
  // Not named by ACE, which names a thread that it could not start, too, and crashes. A detached
  // thread may be gone before it gets its name.
  const bool named = (flags & THR_JOINABLE) != 0;
  const int result = ACE_Task<ACE_MT_SYNCH>::activate(
      flags, n_threads, force_active, priority, grp_id, task, thread_handles, stack, stack_size,
      started, named ? nullptr : thr_name);
  if (result != 0) {
    return result;
  }
  const qov::ThreadName usual(taskMgr_ != nullptr ? taskMgr_->moduleId() : 0, "task");
  for (std::size_t i = 0; i < count; ++i) {
    if (named) {
      const qov::ThreadName name = thr_name != nullptr ? qov::ThreadName(thr_name[i]) : usual;
      ::pthread_setname_np(started[i], name.text());
    }
    ThreadTasks::instance().bindStarted(started[i], this);
  }
  // By the group that was asked for: a task that asked for none is its starter's own.
  if (taskMgr_ != nullptr && grp_id != -1 && grp_id == taskMgr_->gid() &&
      !context_->startedTasks_->add(this)) {
    qov::tellToEnd(*this);
  }
  return result;
}

int CQOV_Task::close(u_long) {
  ThreadTasks::instance().unbind(ACE_Thread::self(), this);
  return 0;
}

CQOV_Task* getCurrentTask() {
  CQOV_Task* const task = ThreadTasks::instance().find(ACE_Thread::self());
  // A thread may ask before its starter has bound it; ACE knows whose it is.
  return task != nullptr ? task : dynamic_cast<CQOV_Task*>(ACE_Thread_Manager::instance()->task());
}
