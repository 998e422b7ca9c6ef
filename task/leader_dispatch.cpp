#include <ace/Guard_T.h>
#include <qovplatform/platform_guard.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_module_loader.h>

#include <cerrno>

#include "diag/log_ids.h"
#include "module/process_loader.h"
#include "task/dispatcher.h"
#include "task/later_answer.h"
#include "task/message_block.h"
#include "task/message_trace.h"
#include "task/send_cause.h"

// Which message goes where.

namespace {

MsgKey keyOfRequest(const QOVMsgHead& head) {
  return {head.opc_, head.sn_, head.spid_, head.smid_, head.rpid_, head.rmid_};
}

/// A response comes back from where its request went.
MsgKey keyOfResponse(const QOVMsgHead& head) {
  return {head.opc_, head.sn_, head.rpid_, head.rmid_, head.spid_, head.smid_};
}

/// Why the loader did not take a message, from its errno.
QOVDropReason reasonOf(int refusal) {
  switch (refusal) {
    case EWOULDBLOCK:
      return QOVDropReason::kNoRoom;
    case ESHUTDOWN:
      return QOVDropReason::kStopped;
    default:
      return QOVDropReason::kNoReceiver;
  }
}

}  // namespace

const CQOV_Leader_Task::Dispatcher::Handler CQOV_Leader_Task::Dispatcher::kHandlers[] = {
    &Dispatcher::handleUnknownMsg, &Dispatcher::handleReqMsg, &Dispatcher::handleRspMsg,
    &Dispatcher::handleAsyncMsg, &Dispatcher::handleAsyncMsg};

void CQOV_Leader_Task::Dispatcher::handleDataMsg(ACE_Message_Block* mb) {
  CQOVDebugKitGuard log(qov::kPublicKit,
                        "void CQOV_Leader_Task::handleDataMsg(ACE_Message_Block*)");
  FowGuard watch(0, 1, 3600);
  if (mb == nullptr) {
    log.error(qov::log_id::kLeaderNull, __FUNCTION__, __LINE__, "Invalid parameter, mb is null.");
    return;
  }
  if (mb->length() != qov::kPointerSize) {
    log.warn(qov::log_id::kLeaderBadLength, __FUNCTION__, __LINE__,
             "Manager thread(%d) received invalid message!", moduleId_);
    drop(QOVDropReason::kInvalid, mb);
    return;
  }
  void* pointer = nullptr;
  if (!qov::readPointer(*mb, pointer)) {
    log.error(qov::log_id::kLeaderNotCopied, __FUNCTION__, __LINE__, "Copy message error!");
    drop(QOVDropReason::kInvalid, mb);
    return;
  }
  if (pointer == nullptr) {
    log.warn(qov::log_id::kLeaderNullPackage, __FUNCTION__, __LINE__, "Null message!");
    drop(QOVDropReason::kInvalid, mb);
    return;
  }
  auto* const pkg = static_cast<CQOV_MsgPackage*>(pointer);
  const QOVMsgHead& head = pkg->head();
  log.debug(qov::log_id::kTraffic, __FUNCTION__, __LINE__,
            "Module(%d) recv msg: SPID=%u,SMID=%u,RPID=%u,RMID=%u,OPC=%llu,SN=0x%x,TP=%u.",
            moduleId_, head.spid_, head.smid_, head.rpid_, head.rmid_,
            static_cast<unsigned long long>(head.opc_), head.sn_, head.type_);
  qov::noteDispatch(counters_.moduleId(), head);
  if (qov::carriesTimeoutDesc(*mb) && !isWaitedFor(head)) {
    log.warn(qov::log_id::kForeignRequest, __FUNCTION__, __LINE__,
             "Module(%d) cannot wait for the response to a message that is not its own request!",
             moduleId_);
    qov::PendingRequests::wakeSenderOf(*mb, EINVAL);
  }
  const Handler handler =
      QOVMsgHead::isType(head.type_) ? kHandlers[head.type_] : kHandlers[QOVMsgHead::kNoType];
  (this->*handler)(mb, pkg);
}

bool CQOV_Leader_Task::Dispatcher::isWaitedFor(const QOVMsgHead& head) const {
  return head.type_ == QOVMsgHead::kRequest && head.spid_ == queue_.processId() &&
         head.smid_ == moduleId_;
}

void CQOV_Leader_Task::Dispatcher::handleReqMsg(ACE_Message_Block* mb, CQOV_MsgPackage* pkg) {
  CQOVDebugKitGuard log(
      qov::kPublicKit, "void CQOV_Leader_Task::handleReqMsg(ACE_Message_Block*, CQOV_MsgPackage*)");
  if (mb == nullptr || pkg == nullptr) {
    log.error(qov::log_id::kRequestInvalid, __FUNCTION__, __LINE__,
              "Invalid Parameter, pMsgPkg or mb is null.");
    return;
  }
  const QOVMsgHead& head = pkg->head();
  const MsgKey key = keyOfRequest(head);
  const bool waitedFor = isWaitedFor(head) && !qov::isUnawaited(*mb);
  if (waitedFor && !beginWait(log, key, mb, pkg)) {
    return;
  }
  if (forwordMessage(&head, mb) == 0) {
    return;
  }
  if (waitedFor) {
    pending_.drop(key, qov::sendCauseOf(errno));
  }
  qov::releaseWithPackage(mb);
}

bool CQOV_Leader_Task::Dispatcher::beginWait(CQOVDebugKitGuard& log, const MsgKey& key,
                                             ACE_Message_Block* mb, CQOV_MsgPackage* pkg) {
  if (mb->cont() == nullptr) {
    // The package stays alive: kept. Nobody waits for an answer, so its sender may still hold it.
    log.warn(qov::log_id::kRequestNobodyWaits, __FUNCTION__, __LINE__,
             "Manager thread(%d) received invalid request message!", moduleId_);
    counters_.drop(QOVDropReason::kInvalid, pkg->head());
    mb->release();
    return false;
  }
  const std::unique_ptr<TimeoutDesc> sender = qov::takeTimeoutDesc(*mb);
  if (sender == nullptr) {
    log.error(qov::log_id::kRequestNotCopied, __FUNCTION__, __LINE__, "Copy message error!");
    drop(QOVDropReason::kInvalid, mb);
    return false;
  }
  if (pending_.add(key, *sender)) {
    return true;
  }
  const int cause = errno;
  log.warn(qov::log_id::kRequestNotBound, __FUNCTION__, __LINE__,
           "Failed to bind REQ message! SPID=%u,SMID=%u,RPID=%u,RMID=%u,OPC=%llu,SN=0x%x,TP=%u\n",
           key.spid_, key.smid_, key.rpid_, key.rmid_, static_cast<unsigned long long>(key.opc_),
           key.sn_, pkg->head().type_);
  qov::PendingRequests::wake(*sender, cause);
  drop(cause == ENOMEM ? QOVDropReason::kNoMemory : QOVDropReason::kInvalid, mb);
  return false;
}

void CQOV_Leader_Task::Dispatcher::handleRspMsg(ACE_Message_Block* mb, CQOV_MsgPackage* pkg) {
  CQOVDebugKitGuard log(
      qov::kPublicKit, "void CQOV_Leader_Task::handleRspMsg(ACE_Message_Block*, CQOV_MsgPackage*)");
  if (mb == nullptr || pkg == nullptr) {
    log.error(qov::log_id::kResponseInvalid, __FUNCTION__, __LINE__,
              "Invalid Parameter, pMsgPkg or mb is null.");
    return;
  }
  const QOVMsgHead& head = pkg->head();
  if (head.rpid_ == queue_.processId() && head.rmid_ == moduleId_) {
    const TimeoutDesc waiter = pending_.take(keyOfResponse(head));
    if (waiter.later_ != nullptr) {
      counters_.in_.add();
      waiter.later_->end(mb);
      return;
    }
    CQOV_Task* const sender = waiter.task_;
    if (sender != nullptr && sender->putMsg(head.type_, mb, nullptr) != -1) {
      counters_.in_.add();
      return;
    }
    counters_.drop(sender != nullptr ? QOVDropReason::kStopped : QOVDropReason::kNobodyWaits, head);
    if (sender == nullptr) {
      log.warn(qov::log_id::kResponseUnexpected, __FUNCTION__, __LINE__,
               "Failed to handle RSP message: SPID=%u,SMID=%u,OPC=%llu,SN=%u!\n", head.spid_,
               head.smid_, static_cast<unsigned long long>(head.opc_), head.sn_);
    }
  } else {
    if (forwordMessage(&head, mb) == 0) {
      return;
    }
    // The places of SPID and SMID show RPID and RMID: kept, tools that read these lines expect it.
    log.warn(qov::log_id::kResponseNotForwarded, __FUNCTION__, __LINE__,
             "Failed to forword message: SPID=%u,SMID=%u,OPC=%llu,SN=%u!\n", head.rpid_, head.rmid_,
             static_cast<unsigned long long>(head.opc_), head.sn_);
  }
  qov::releaseWithPackage(mb);
}

void CQOV_Leader_Task::Dispatcher::handleAsyncMsg(ACE_Message_Block* mb, CQOV_MsgPackage* pkg) {
  CQOVDebugKitGuard log(
      qov::kPublicKit,
      "void CQOV_Leader_Task::handleAsyncMsg(ACE_Message_Block*, CQOV_MsgPackage*)");
  if (mb == nullptr || pkg == nullptr) {
    log.error(qov::log_id::kAsyncNull, __FUNCTION__, __LINE__,
              "Invalid Parameter, pMsgPkg or mb is null.");
    return;
  }
  const QOVMsgHead& head = pkg->head();
  if (forwordMessage(&head, mb) != 0) {
    log.warn(qov::log_id::kAsyncNotForwarded, __FUNCTION__, __LINE__,
             "Failed to forword message: RPID=%u,RMID=%u,OPC=%llu,SN=%u!\n", head.rpid_, head.rmid_,
             static_cast<unsigned long long>(head.opc_), head.sn_);
    qov::releaseWithPackage(mb);
  }
}

void CQOV_Leader_Task::Dispatcher::handleUnknownMsg(ACE_Message_Block* mb, CQOV_MsgPackage*) {
  CQOVDebugKitGuard log(
      qov::kPublicKit,
      "void CQOV_Leader_Task::handleUnknownMsg(ACE_Message_Block*, CQOV_MsgPackage*)");
  log.warn(qov::log_id::kLeaderUnknownType, __FUNCTION__, __LINE__,
           "Manager thread(%d) received unknown message type!", moduleId_);
  drop(QOVDropReason::kInvalid, mb);
}

int CQOV_Leader_Task::Dispatcher::forwordMessage(const QOVMsgHead* head, ACE_Message_Block* mb) {
  CQOVDebugKitGuard log(
      qov::kPublicKit,
      "int CQOV_Leader_Task::forwordMessage(const QOVMsgHead*, ACE_Message_Block*)");
  if (head == nullptr || mb == nullptr) {
    log.error(qov::log_id::kForwardNull, __FUNCTION__, __LINE__,
              "Invalid Parameter, pMsg or mb is null.");
    return -1;
  }
  if (head->rpid_ != queue_.processId()) {
    log.error(qov::log_id::kForwardOtherProcess, __FUNCTION__, __LINE__, "recv msg error.");
    counters_.drop(QOVDropReason::kOtherProcess, *head);
    return 0;
  }
  if (head->rmid_ != moduleId_) {
    return passOn(head->rmid_, mb);
  }
  deliver(log, *head, mb);
  return 0;
}

int CQOV_Leader_Task::Dispatcher::passOn(std::uint8_t moduleId, ACE_Message_Block* mb) {
  const int result = qov::processLoader().sendMsg(moduleId, mb);
  if (result == 0) {
    counters_.out_.add();
  } else {
    counters_.drop(reasonOf(errno), qov::tracedIn(*mb));
  }
  return result;
}

void CQOV_Leader_Task::Dispatcher::drop(QOVDropReason reason, ACE_Message_Block* mb) {
  counters_.drop(reason, qov::tracedIn(*mb));
  qov::releaseWithPackage(mb);
}

void CQOV_Leader_Task::Dispatcher::deliver(CQOVDebugKitGuard& log, const QOVMsgHead& head,
                                           ACE_Message_Block* mb) {
  CQOV_StaticSchecheduledTask* const task = findStaticTask(head.opc_);
  const bool taken = task != nullptr ? task->putMsg(head.type_, mb, nullptr) != -1
                                     : scheduler_->take(head.type_, mb);
  if (!taken) {
    // It has ended, and nobody else takes the message over.
    log.warn(qov::log_id::kReceiverEnded, __FUNCTION__, __LINE__,
             "The receiver in module %d has ended: OPC=%llu,SN=%u,TP=%u!", moduleId_,
             static_cast<unsigned long long>(head.opc_), head.sn_, head.type_);
    drop(QOVDropReason::kStopped, mb);
    return;
  }
  counters_.in_.add();
}

CQOV_StaticSchecheduledTask* CQOV_Leader_Task::Dispatcher::findStaticTask(std::uint64_t opc) {
  if (!hasStaticTasks_) {
    return nullptr;
  }
  ACE_Guard<ACE_Thread_Mutex> guard(staticLock_);
  const auto found = opcTasks_.find(opc);
  return found != opcTasks_.end() ? found->second : nullptr;
}
