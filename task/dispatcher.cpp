#include "task/dispatcher.h"

#include <ace/Guard_T.h>
#include <ace/Reactor.h>
#include <ace/Thread.h>
#include <qovpub/qov_common_debugkit.h>

#include <cerrno>
#include <new>

#include "diag/log_ids.h"
#include "task/doorbell.h"
#include "task/message_block.h"
#include "task/start_task.h"
#include "task/task_context.h"
#include "task/thread_groups.h"
#include "task/thread_tasks.h"

namespace {

using qov::TaskContext;

constexpr std::size_t kBuckets = 1024;

}  // namespace

CQOV_Leader_Task::Dispatcher::Dispatcher(CQOV_Leader_Task& leader, unsigned int poolSize)
    : leader_(leader),
      scheduler_(std::make_unique<CQOV_TaskScheduler>(leader.taskMgr(), poolSize)),
      moduleId_(leader.taskMgr()->moduleId()),
      queue_(static_cast<qov::LeaderQueue&>(*TaskContext::of(leader).queue_)),
      counters_(TaskContext::countersOf(leader)),
      reactorImpl_(leader),
      reactor_(&reactorImpl_),
      turn_(std::make_shared<qov::LeaderTurn>(*this, reactorImpl_.bell())),
      notification_(reactor_, leader, turn_),
      pending_(reactor_, leader, counters_),
      handlerWatch_(moduleId_, reactor_, counters_.handlers_, pending_),
      opcTasks_(kBuckets) {
  TaskContext::of(*scheduler_).queue_->countInto(queue_.admission());
  queue_.admission()->ledBy(turn_);
  counters_.handlers_.wakeBy([this] { wakeOwnThread(); });
  queue_.notification_strategy(&notification_);
}

CQOV_Leader_Task::Dispatcher::~Dispatcher() {
  queue_.notification_strategy(nullptr);
}

std::size_t CQOV_Leader_Task::Dispatcher::dispatchSome(std::size_t most) {
  CQOVDebugKitGuard log(qov::kPublicKit,
                        "std::size_t CQOV_Leader_Task::Dispatcher::dispatchSome(std::size_t)");
  if (processLoopHasEnded()) {
    wakeOwnThread();
    return 0;
  }
  const qov::LeaderQueue::Messages messages = queue_.takeMessages(most);
  if (!messages.isAll) {
    wakeOwnThread();
  }
  dispatchAll(log, messages.first);
  return messages.count;
}

void CQOV_Leader_Task::Dispatcher::wakeOwnThread() {
  reactor_.notify(&leader_, ACE_Event_Handler::WRITE_MASK);
}

bool CQOV_Leader_Task::Dispatcher::run() {
  CQOVDebugKitGuard log(qov::kPublicKit, "bool CQOV_Leader_Task::run()");
  ACE_thread_t thread = 0;
  if (qov::startTask(leader_, leader_.grp_id(), {moduleId_, "leader"}, thread) != 0) {
    return false;
  }
  if (qov::startTask(*scheduler_, leader_.grp_id(), {moduleId_, "scheduler"}, thread) != 0) {
    leader_.notifyExit();  // without memory the manager's stop tells it again
    return false;
  }
  return true;
}

void CQOV_Leader_Task::Dispatcher::serve() {
  reactor_.owner(ACE_Thread::self());
  turn_->open();
  while (!processLoopHasEnded() && reactorImpl_.deactivated() == 0) {
    reactorImpl_.wait();
    // Not longer: a busy leader never waits, and whom it wakes would sleep until it does.
    const qov::RingCollector round;
    const qov::OwnTurn turn(*turn_);
    // Before the queue is looked at, where the answers stand that these modules have given.
    const qov::EndedModules::Ids ended = endedModules_.take();
    // The queue first, also where a sender has left only a mark: a response that is here comes
    // before the time-out of its request.
    reactorImpl_.dispatch(!queue_.is_empty());
    if (ended.any()) {
      pending_.releaseLater(queue_.processId(), ended);
    }
    handlerWatch_.follow();
  }
  end();
}

int CQOV_Leader_Task::Dispatcher::handle_output() {
  CQOVDebugKitGuard log(qov::kPublicKit, "virtual int CQOV_Leader_Task::handle_output(ACE_HANDLE)");
  // What stands in the queue now; what comes meanwhile has notified again. So timers get their turn
  // under constant traffic.
  return dispatchAll(log, queue_.takeBatch());
}

int CQOV_Leader_Task::Dispatcher::dispatchAll(CQOVDebugKitGuard& log, ACE_Message_Block* mb) {
  int result = 0;
  while (mb != nullptr) {
    ACE_Message_Block* const next = mb->next();
    mb->next(nullptr);
    const std::size_t bytes = mb->total_size();
    turn_->step();
    if (dispatch(log, mb) == -1) {
      result = -1;
    }
    queue_.doneWith(bytes);
    mb = next;
  }
  return result;
}

int CQOV_Leader_Task::Dispatcher::dispatch(CQOVDebugKitGuard& log, ACE_Message_Block* mb) {
  if (mb->msg_type() == ACE_Message_Block::MB_DATA) {
    handleDataMsg(mb);
    return 0;
  }
  const qov::BlockPtr block(mb);
  switch (mb->msg_type()) {
    case ACE_Message_Block::MB_STOP:
      log.info(qov::log_id::kLeaderStop, __FUNCTION__, __LINE__,
               "Manager thread(%d) received stop-message!", moduleId_);
      return -1;
    case ACE_Message_Block::MB_HANGUP:
      log.info(qov::log_id::kLeaderHangup, __FUNCTION__, __LINE__,
               "Manager thread(%d) received hangup-message!", moduleId_);
      handle_mb_hangup();
      return 0;
    default:
      log.warn(qov::log_id::kLeaderUnknownBlock, __FUNCTION__, __LINE__,
               "Manager thread(%d) received unknown message type!", moduleId_);
      return 0;
  }
}

void CQOV_Leader_Task::Dispatcher::handle_mb_hangup() {
  CQOVDebugKitGuard log(qov::kPublicKit, "void CQOV_Leader_Task::handle_mb_hangup()");
  pending_.releaseOtherProcesses(queue_.processId());
}

int CQOV_Leader_Task::Dispatcher::handle_timeout(const void* act) {
  CQOVDebugKitGuard log(
      qov::kPublicKit,
      "virtual int CQOV_Leader_Task::handle_timeout(const ACE_Time_Value&, const void*)");
  pending_.timeOut(act);
  return 0;
}

int CQOV_Leader_Task::Dispatcher::handle_close() {
  CQOVDebugKitGuard log(qov::kPublicKit,
                        "virtual int CQOV_Leader_Task::handle_close(ACE_HANDLE, ACE_Reactor_Mask)");
  shutDown();
  return 0;
}

void CQOV_Leader_Task::Dispatcher::noteEnded(std::uint8_t id) {
  if (id == moduleId_) {
    // It was another one of that id: messages to it come to this module.
    return;
  }
  endedModules_.note(id);
  reactor_.notify(&leader_, ACE_Event_Handler::WRITE_MASK);
}

qov::LeaderProgress CQOV_Leader_Task::Dispatcher::progress() {
  return turn_->progress(!queue_.is_empty());
}

bool CQOV_Leader_Task::Dispatcher::processLoopHasEnded() {
  return ACE_Reactor::instance()->reactor_event_loop_done() != 0;
}

void CQOV_Leader_Task::Dispatcher::end() {
  const qov::OwnTurn turn(*turn_);
  shutDown();
}

void CQOV_Leader_Task::Dispatcher::shutDown() {
  if (closed_) {
    return;
  }
  closed_ = true;
  turn_->close();
  reactor_.end_reactor_event_loop();
  // Closed before it is drained, so that no sender can slip a request in that nobody would answer.
  queue_.deactivate();
  for (ACE_Message_Block* mb = queue_.takeBatch(); mb != nullptr;) {
    ACE_Message_Block* const next = mb->next();
    queue_.doneWith(mb->total_size());
    qov::PendingRequests::wakeSenderOf(*mb, ECONNABORTED);
    if (mb->msg_type() == ACE_Message_Block::MB_DATA) {
      counters_.drop(QOVDropReason::kStopped, qov::tracedIn(*mb));
    }
    qov::releaseWithPackage(mb);
    mb = next;
  }
  pending_.releaseAll();
  // A module's own notifyExit() may join the thread that it has woken.
  qov::endCollecting();
  qov::StartedTasks& started = *TaskContext::of(leader_).startedTasks_;
  started.beginStop();
  while (CQOV_Task* const task = started.nextToTell()) {
    if (task != &leader_) {
      qov::tellToEnd(*task);
    }
  }
}

void CQOV_Leader_Task::Dispatcher::insertStaticScheduledTask(unsigned long threadId,
                                                             CQOV_StaticSchecheduledTask* task) {
  CQOVDebugKitGuard log(qov::kPublicKit,
                        "void CQOV_Leader_Task::insertStaticScheduledTask(unsigned long, "
                        "CQOV_StaticSchecheduledTask*)");
  if (task == nullptr) {
    return;
  }
  const TaskContext& context = TaskContext::of(*task);
  context.queue_->countInto(queue_.admission());
  if (!context.started_) {
    // Its thread is the caller's own affair. Threads of the runtime are known, or have ended.
    qov::ThreadTasks::instance().bind(threadId, task);
  }
  // Asked before the codes are locked: the leader would wait for whatever the task does here.
  std::list<unsigned long long> opcs;
  task->getOpcList(opcs);
  ACE_Guard<ACE_Thread_Mutex> guard(staticLock_);
  for (const unsigned long long opc : opcs) {
    try {
      opcTasks_.emplace(opc, task);
    } catch (const std::bad_alloc&) {
      errno = ENOMEM;
    }
  }
  hasStaticTasks_ = true;
}
