#include <ace/Guard_T.h>
#include <ace/Reactor.h>
#include <ace/Thread.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_leader_task.h>
#include <qovpub/qov_task_mgr.h>
#include <qovpub/qov_task_scheduler.h>
#include <qovpub/qov_utility.h>

#include <cerrno>
#include <new>

#include "diag/log_ids.h"
#include "task/doorbell.h"
#include "task/ended_modules.h"
#include "task/leader_queue.h"
#include "task/leader_turn.h"
#include "task/message_block.h"
#include "task/module_counters.h"
#include "task/pending_requests.h"
#include "task/start_task.h"
#include "task/started_tasks.h"
#include "task/thread_tasks.h"
#include "task/wait_reactor.h"

namespace {

constexpr std::size_t kBuckets = 1024;

/// Addresses in headers are one byte wide.
std::uint8_t addressOf(unsigned int id) {
  return static_cast<std::uint8_t>(id & 0xFFU);
}

}  // namespace

unsigned long LLHashFunctor::operator()(unsigned long long value) const {
  return static_cast<unsigned long>(value);
}

/// What a sender's thread does for the leader.
struct CQOV_Leader_Task::Work final : qov::LeaderWork {
  explicit Work(CQOV_Leader_Task& leader) : leader_(leader) {}

  std::size_t dispatchSome(std::size_t most) override {
    CQOVDebugKitGuard log(qov::kPublicKit,
                          "std::size_t CQOV_Leader_Task::Work::dispatchSome(std::size_t)");
    if (leader_.processLoopHasEnded()) {
      wakeOwnThread();
      return 0;
    }
    const qov::LeaderQueue::Messages messages = leader_.leaderQueue_.takeMessages(most);
    if (!messages.isAll) {
      wakeOwnThread();
    }
    leader_.dispatchAll(log, messages.first);
    return messages.count;
  }

  void wakeOwnThread() override {
    leader_.reactor_.notify(&leader_, ACE_Event_Handler::WRITE_MASK);
  }

  CQOV_Leader_Task& leader_;
};

CQOV_Leader_Task::CQOV_Leader_Task(CQOV_TaskMgr* mgr, unsigned int poolSize)
    : CQOV_Leader_Task(mgr, poolSize,
                       std::make_unique<qov::LeaderQueue>(mgr, addressOf(QOV_Utility::getProcPID()),
                                                          addressOf(mgr->moduleId()))) {}

CQOV_Leader_Task::CQOV_Leader_Task(CQOV_TaskMgr* mgr, unsigned int poolSize,
                                   std::unique_ptr<qov::LeaderQueue> queue)
    : CQOV_Task(mgr, std::move(queue)),
      scheduler_(std::make_unique<CQOV_TaskScheduler>(mgr, poolSize)),
      moduleId_(mgr->moduleId()),
      leaderQueue_(static_cast<qov::LeaderQueue&>(taskQueue())),
      counters_(*mgr->counters_),
      reactorImpl_(std::make_unique<qov::WaitReactor>(*this)),
      reactor_(reactorImpl_.get()),
      work_(std::make_unique<Work>(*this)),
      turn_(std::make_shared<qov::LeaderTurn>(*work_, reactorImpl_->bell())),
      notification_(std::make_unique<qov::LeaderNotification>(reactor_, *this, turn_)),
      endedModules_(std::make_unique<qov::EndedModules>()),
      pending_(std::make_unique<qov::PendingRequests>(reactor_, *this, counters_)),
      opcTasks_(kBuckets) {
  // Made by whoever loads the modules: the thread that first touches the process reactor owns it.
  ACE_Reactor::instance();
  makesRoom_ = true;
  scheduler_->queue_->countInto(leaderQueue_.admission());
  leaderQueue_.admission()->ledBy(turn_);
  msg_queue()->notification_strategy(notification_.get());
}

CQOV_Leader_Task::~CQOV_Leader_Task() {
  msg_queue()->notification_strategy(nullptr);
  // The base class would reach for the reactor, which is gone by then.
  reactor(nullptr);
}

const qov::Admission& CQOV_Leader_Task::admission() const {
  return *leaderQueue_.admission();
}

bool CQOV_Leader_Task::run() {
  CQOVDebugKitGuard log(qov::kPublicKit, "bool CQOV_Leader_Task::run()");
  ACE_thread_t thread = 0;
  if (qov::startTask(*this, grp_id(), {moduleId_, "leader"}, thread) != 0) {
    return false;
  }
  if (qov::startTask(*scheduler_, grp_id(), {moduleId_, "scheduler"}, thread) != 0) {
    notifyExit();
    return false;
  }
  return true;
}

int CQOV_Leader_Task::svc() {
  CQOVDebugKitGuard log(qov::kPublicKit, "virtual int CQOV_Leader_Task::svc()");
  reactor_.owner(ACE_Thread::self());
  turn_->open();
  while (!processLoopHasEnded() && reactorImpl_->deactivated() == 0) {
    reactorImpl_->wait();
    // Not longer: a busy leader never waits, and whom it wakes would sleep until it does.
    const qov::RingCollector round;
    const qov::OwnTurn turn(*turn_);
    // Before the queue is looked at, where the answers stand that these modules have given.
    const qov::EndedModules::Ids ended = endedModules_->take();
    // The queue first, also where a sender has left only a mark: a response that is here comes
    // before the time-out of its request.
    reactorImpl_->dispatch(!leaderQueue_.is_empty());
    if (ended.any()) {
      pending_->releaseLater(leaderQueue_.processId(), ended);
    }
  }
  end();
  log.warn(qov::log_id::kLeaderExits, __FUNCTION__, __LINE__, "Manager thread(%d) exit!",
           taskMgr()->moduleId());
  return 0;
}

int CQOV_Leader_Task::handle_output(ACE_HANDLE) {
  CQOVDebugKitGuard log(qov::kPublicKit, "virtual int CQOV_Leader_Task::handle_output(ACE_HANDLE)");
  // What stands in the queue now; what comes meanwhile has notified again. So timers get their turn
  // under constant traffic.
  return dispatchAll(log, leaderQueue_.takeBatch());
}

int CQOV_Leader_Task::dispatchAll(CQOVDebugKitGuard& log, ACE_Message_Block* mb) {
  int result = 0;
  while (mb != nullptr) {
    ACE_Message_Block* const next = mb->next();
    mb->next(nullptr);
    const std::size_t bytes = mb->total_size();
    if (dispatch(log, mb) == -1) {
      result = -1;
    }
    leaderQueue_.doneWith(bytes);
    mb = next;
  }
  return result;
}

int CQOV_Leader_Task::dispatch(CQOVDebugKitGuard& log, ACE_Message_Block* mb) {
  if (mb->msg_type() == ACE_Message_Block::MB_DATA) {
    handleDataMsg(mb);
    return 0;
  }
  const qov::BlockPtr block(mb);
  switch (mb->msg_type()) {
    case ACE_Message_Block::MB_STOP:
      log.info(qov::log_id::kLeaderStop, __FUNCTION__, __LINE__,
               "Manager thread(%d) received stop-message!", taskMgr()->moduleId());
      return -1;
    case ACE_Message_Block::MB_HANGUP:
      log.info(qov::log_id::kLeaderHangup, __FUNCTION__, __LINE__,
               "Manager thread(%d) received hangup-message!", taskMgr()->moduleId());
      handle_mb_hangup();
      return 0;
    default:
      log.warn(qov::log_id::kLeaderUnknownBlock, __FUNCTION__, __LINE__,
               "Manager thread(%d) received unknown message type!", taskMgr()->moduleId());
      return 0;
  }
}

void CQOV_Leader_Task::handle_mb_hangup() {
  CQOVDebugKitGuard log(qov::kPublicKit, "void CQOV_Leader_Task::handle_mb_hangup()");
  pending_->releaseOtherProcesses(leaderQueue_.processId());
}

int CQOV_Leader_Task::handle_timeout(const ACE_Time_Value&, const void* act) {
  CQOVDebugKitGuard log(
      qov::kPublicKit,
      "virtual int CQOV_Leader_Task::handle_timeout(const ACE_Time_Value&, const void*)");
  pending_->timeOut(act);
  return 0;
}

int CQOV_Leader_Task::handle_close(ACE_HANDLE, ACE_Reactor_Mask) {
  CQOVDebugKitGuard log(qov::kPublicKit,
                        "virtual int CQOV_Leader_Task::handle_close(ACE_HANDLE, ACE_Reactor_Mask)");
  shutDown();
  return 0;
}

void CQOV_Leader_Task::noteEnded(std::uint8_t id) {
  if (id == moduleId_) {
    // It was another one of that id: messages to it come to this module.
    return;
  }
  endedModules_->note(id);
  reactor_.notify(this, ACE_Event_Handler::WRITE_MASK);
}

bool CQOV_Leader_Task::processLoopHasEnded() {
  return ACE_Reactor::instance()->reactor_event_loop_done() != 0;
}

void CQOV_Leader_Task::end() {
  const qov::OwnTurn turn(*turn_);
  shutDown();
}

void CQOV_Leader_Task::shutDown() {
  if (closed_) {
    return;
  }
  closed_ = true;
  turn_->close();
  reactor_.end_reactor_event_loop();
  // Closed before it is drained, so that no sender can slip a request in that nobody would answer.
  leaderQueue_.deactivate();
  for (ACE_Message_Block* mb = leaderQueue_.takeBatch(); mb != nullptr;) {
    ACE_Message_Block* const next = mb->next();
    leaderQueue_.doneWith(mb->total_size());
    qov::PendingRequests::wakeSenderOf(*mb, ECONNABORTED);
    qov::releaseWithPackage(mb);
    mb = next;
  }
  pending_->releaseAll();
  // A module's own notifyExit() may join the thread that it has woken.
  qov::endCollecting();
  qov::StartedTasks& started = *taskMgr()->startedTasks_;
  started.beginStop();
  while (CQOV_Task* const task = started.nextToTell()) {
    if (task != this) {
      task->notifyExit();
    }
  }
}

void CQOV_Leader_Task::insertStaticScheduledTask(unsigned long threadId,
                                                 CQOV_StaticSchecheduledTask* task) {
  CQOVDebugKitGuard log(qov::kPublicKit,
                        "void CQOV_Leader_Task::insertStaticScheduledTask(unsigned long, "
                        "CQOV_StaticSchecheduledTask*)");
  if (task == nullptr) {
    return;
  }
  task->queue_->countInto(leaderQueue_.admission());
  if (!task->started_) {
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
