#include <ace/OS_NS_sys_time.h>
#include <ace/Thread_Manager.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_leader_task.h>
#include <qovpub/qov_task.h>
#include <qovpub/qov_task_mgr.h>

#include <atomic>
#include <cerrno>
#include <new>
#include <optional>
#include <utility>

#include "diag/log_ids.h"
#include "diag/log_level.h"
#include "task/activity_switch.h"
#include "task/hand_over.h"
#include "task/leader_turn.h"
#include "task/message_block.h"
#include "task/message_trace.h"
#include "task/send_cause.h"
#include "task/task_context.h"
#include "task/time_span.h"

namespace {

using qov::TaskContext;

/// The end of a relative time-out as the absolute time that ACE's queues expect.
class Deadline {
 public:
  explicit Deadline(const ACE_Time_Value* timeout) : limited_(timeout != nullptr) {
    if (limited_) {
      until_ = ACE_OS::gettimeofday() + qov::limitedSpan(*timeout);
    }
  }

  ACE_Time_Value* get() { return limited_ ? &until_ : nullptr; }

 private:
  bool limited_;
  ACE_Time_Value until_;
};

/// The block of a request with the descriptor of its waiting sender behind it.
ACE_Message_Block* makeRequestBlock(const CQOV_MsgPackage* req,
                                    std::unique_ptr<TimeoutDesc>& desc) {
  ACE_Message_Block* const block = qov::makePointerBlock(req);
  if (block == nullptr || desc == nullptr) {
    ACE_Message_Block::release(block);
    errno = ENOMEM;
    return nullptr;
  }
  if (!qov::chainTimeoutDesc(*block, desc.get())) {
    block->release();
    return nullptr;
  }
  return block;
}

/// Deletes `req` if `freeReq`, and leaves `cause` in errno; returns -1.
int failed(int cause, const CQOV_MsgPackage* req, bool freeReq) {
  if (freeReq) {
    delete req;
  }
  errno = cause;
  return -1;
}

/// Keeps others out while it lives, unless another one has kept this one out.
class OneAtATime {
 public:
  explicit OneAtATime(std::atomic<bool>& busy) : busy_(busy), taken_(!busy.exchange(true)) {}
  ~OneAtATime() {
    if (taken_) {
      busy_ = false;
    }
  }

  OneAtATime(const OneAtATime&) = delete;
  OneAtATime& operator=(const OneAtATime&) = delete;

  bool taken() const { return taken_; }

 private:
  std::atomic<bool>& busy_;
  const bool taken_;
};

/// Puts `block` into the leader's queue as CQOV_TaskMgr::putq() does, with a relative time-out. The
/// calling thread then does the leaders' work if it `mayLead`.
int handOver(CQOV_Task& task, ACE_Message_Block* block, const ACE_Time_Value* timeout,
             bool mayLead) {
  // Records of the leader's work come from its own thread.
  const qov::LeadingScope scope(mayLead && !qov::isOn(qov::kDebug) && !qov::isOn(qov::kTrace));
  Deadline deadline(timeout);
  return task.taskMgr()->putq(block, deadline.get());
}

/// Forgets a wake-up or a response that came too late for the send() it was meant for.
void forgetLateAnswer(CQOV_Task& task) {
  TaskContext& context = TaskContext::of(task);
  context.cause_ = 0;
  context.queue_->clearPulse();
  if (context.slot_ && context.slot_->reset()) {
    TaskContext::countersOf(task).drop(QOVDropReason::kNobodyWaits);
  }
}

/// Waits for the response with the operation code and serial number of `request`, past responses to
/// earlier requests; null when the wait was ended.
ACE_Message_Block* awaitAnswerTo(CQOV_Task& task, const QOVMsgHead& request) {
  for (;;) {
    ACE_Message_Block* block = nullptr;
    task.getMsg(block);
    const CQOV_MsgPackage* const pkg = block != nullptr ? qov::packageOf(*block) : nullptr;
    if (pkg == nullptr || pkg->head().type_ != QOVMsgHead::kResponse ||
        (pkg->head().opc_ == request.opc_ && pkg->head().sn_ == request.sn_)) {
      return block;
    }
    // The response to an earlier request whose send() was ended before it came.
    TaskContext::countersOf(task).drop(QOVDropReason::kNobodyWaits, pkg->head());
    qov::releaseWithPackage(block);
  }
}

/// Says why the wait ended without a response; returns the errno for it.
int explainNoResponse(const CQOV_Task& task, CQOVDebugKitGuard& log, const QOVMsgHead& request) {
  log.error(qov::log_id::kSendNoResponse, __FUNCTION__, __LINE__, "Worker(%d) failed to get msg!",
            task.taskMgr()->moduleId());
  const int said = TaskContext::of(task).cause_;
  const int cause = said != 0 ? said : ECONNABORTED;
  if (cause == ETIMEDOUT) {
    log.warn(qov::log_id::kSendTimedOut, __FUNCTION__, __LINE__,
             "Worker(%d) got no response in time: RPID=%u,RMID=%u,OPC=%llu,SN=0x%x!",
             task.taskMgr()->moduleId(), request.rpid_, request.rmid_,
             static_cast<unsigned long long>(request.opc_), request.sn_);
  }
  return cause;
}

int waitForResponse(CQOV_Task& task, CQOVDebugKitGuard& log, const QOVMsgHead& request,
                    CQOV_MsgPackage*& rsp) {
  ACE_Message_Block* const block = awaitAnswerTo(task, request);
  if (block == nullptr) {
    errno = explainNoResponse(task, log, request);
    return -1;
  }
  void* pointer = nullptr;
  const bool valid = qov::readPointer(*block, pointer);
  block->release();
  if (!valid) {
    log.error(qov::log_id::kResponseBadLength, __FUNCTION__, __LINE__,
              "Message length isn't equal to %u.", static_cast<unsigned int>(qov::kPointerSize));
    errno = EBADMSG;
    return -1;
  }
  std::unique_ptr<CQOV_MsgPackage> response(static_cast<CQOV_MsgPackage*>(pointer));
  if (response == nullptr) {
    log.error(qov::log_id::kResponseNull, __FUNCTION__, __LINE__, "Worker(%d) failed to get msg!",
              task.taskMgr()->moduleId());
    errno = EBADMSG;
    return -1;
  }
  const QOVMsgHead& head = response->head();
  log.debug(qov::log_id::kTraffic, __FUNCTION__, __LINE__,
            "Worker(%d) recv msg: SPID=%u,SMID=%u,RPID=%u,RMID=%u,OPC=%llu,SN=0x%x,TP=%u!\n",
            task.taskMgr()->moduleId(), head.spid_, head.smid_, head.rpid_, head.rmid_,
            static_cast<unsigned long long>(head.opc_), head.sn_, head.type_);
  qov::noteAnswer(task.taskMgr()->moduleId(), head);
  if (head.mst_ != 0) {
    return head.mst_;
  }
  rsp = response.release();
  return 0;
}

/// Sends `req` for the one thread that may, with arguments that are valid.
int sendAlone(CQOV_Task& task, CQOVDebugKitGuard& log, const CQOV_MsgPackage* req,
              CQOV_MsgPackage*& rsp, ACE_Time_Value* timeout, bool freeReq) {
  forgetLateAnswer(task);
  const ACE_Time_Value limit = timeout != nullptr ? *timeout : ACE_Time_Value::zero;
  std::unique_ptr<TimeoutDesc> waiter(new (std::nothrow) TimeoutDesc{&task, limit, -1});
  // A copy: the request belongs to the runtime before the response is here.
  const QOVMsgHead head = req->head();
  std::optional<qov::WaitingRequests::Entry> noted;
  if (qov::ActivitySwitch::isOn()) {
    noted.emplace(TaskContext::countersOf(task).waitingRequests_, head, limit, qov::threadHere());
  }
  return qov::handOverRequest(task, log, req, std::move(waiter), timeout, freeReq, true) == 0
             ? waitForResponse(task, log, head, rsp)
             : -1;
}

}  // namespace

namespace qov {

int handOverRequest(CQOV_Task& task, CQOVDebugKitGuard& log, const CQOV_MsgPackage* req,
                    std::unique_ptr<TimeoutDesc> waiter, const ACE_Time_Value* timeout,
                    bool freeReq, bool mayLead) {
  ACE_Message_Block* const block = makeRequestBlock(req, waiter);
  if (block == nullptr) {
    return failed(ENOMEM, req, true);
  }
  const QOVMsgHead& head = req->head();
  log.debug(log_id::kTraffic, __FUNCTION__, __LINE__,
            "Worker(%d) send msg: SPID=%u,SMID=%u,RPID=%u,RMID=%u,OPC=%llu,SN=0x%x,TP=%u!\n",
            task.taskMgr()->moduleId(), head.spid_, head.smid_, head.rpid_, head.rmid_,
            static_cast<unsigned long long>(head.opc_), head.sn_, head.type_);
  noteSend(task.taskMgr()->moduleId(), head);
  if (handOver(task, block, timeout, mayLead) == -1) {
    const int cause = sendCauseOf(errno);
    block->release();
    log.error(log_id::kSendFailed, __FUNCTION__, __LINE__, "Worker(%d) failed to send msg!",
              task.taskMgr()->moduleId());
    return failed(cause, req, freeReq);
  }
  // The leader owns the descriptor from here on.
  static_cast<void>(waiter.release());
  return 0;
}

bool isWorkerHere(const CQOV_Task& task) {
  return TaskContext::of(task).makesRoom_ && ACE_Thread_Manager::instance()->task() == &task;
}

}  // namespace qov

int CQOV_Task::send(const CQOV_MsgPackage* req, CQOV_MsgPackage*& rsp, ACE_Time_Value* timeout,
                    bool freeReq) {
  CQOVDebugKitGuard log(qov::kPublicKit,
                        "int CQOV_Task::send(const CQOV_MsgPackage*, CQOV_MsgPackage*&, "
                        "ACE_Time_Value*, bool)");
  if (req == nullptr || rsp != nullptr) {
    log.warn(qov::log_id::kSendInvalid, __FUNCTION__, __LINE__,
             "reqest-pointor is null pointor, or respond-pointor is not null!");
    return failed(EINVAL, req, freeReq);
  }
  const OneAtATime alone(context_->sending_);
  if (!alone.taken()) {
    log.error(qov::log_id::kSendBusy, __FUNCTION__, __LINE__,
              "Worker(%d) cannot send: another thread waits in send() of the same task!",
              taskMgr_->moduleId());
    return failed(EBUSY, req, freeReq);
  }
  return sendAlone(*this, log, req, rsp, timeout, freeReq);
}

int CQOV_Task::send(const CQOV_MsgPackage* req, ACE_Time_Value* timeout, bool freeReq) {
  CQOVDebugKitGuard log(qov::kPublicKit,
                        "int CQOV_Task::send(const CQOV_MsgPackage*, ACE_Time_Value*, bool)");
  if (req == nullptr) {
    log.warn(qov::log_id::kSendNull, __FUNCTION__, __LINE__, "Null pointer of pReq!");
    errno = EINVAL;
    return -1;
  }
  ACE_Message_Block* const block = qov::makePointerBlock(req);
  if (block == nullptr) {
    return failed(ENOMEM, req, true);
  }
  const QOVMsgHead& head = req->head();
  log.debug(qov::log_id::kTraffic, __FUNCTION__, __LINE__,
            "Worker(%d) send msg: SPID=%u,SMID=%u,RPID=%u,RMID=%u,OPC=%llu,SN=0x%x,TP=%u.",
            taskMgr_->moduleId(), head.spid_, head.smid_, head.rpid_, head.rmid_,
            static_cast<unsigned long long>(head.opc_), head.sn_, head.type_);
  qov::noteSend(taskMgr_->moduleId(), head);
  // A leader may have to wait for the table of the modules, which is locked while a module starts.
  // So may a worker of the pool, but not whoever starts the module.
  if (handOver(*this, block, timeout, qov::isWorkerHere(*this)) == -1) {
    const int cause = qov::sendCauseOf(errno);
    block->release();
    return failed(cause, req, freeReq);
  }
  return 0;
}
