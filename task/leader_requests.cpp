#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_leader_task.h>
#include <qovpub/qov_task_mgr.h>

#include <cerrno>

#include "task/leader_queue.h"
#include "task/log_ids.h"
#include "task/message_block.h"
#include "task/message_types.h"
#include "task/send_cause.h"
#include "task/wait_reactor.h"

// The requests that wait for their responses.

namespace {

constexpr long kNoTimer = -1;

MsgKey keyOfRequest(const QOVMsgHead& head) {
  return {head.opc_, head.sn_, head.spid_, head.smid_, head.rpid_, head.rmid_};
}

/// A response comes back from where its request went.
MsgKey keyOfResponse(const QOVMsgHead& head) {
  return {head.opc_, head.sn_, head.rpid_, head.rmid_, head.spid_, head.smid_};
}

}  // namespace

unsigned long LLHashFunctor::operator()(unsigned long long value) const {
  return static_cast<unsigned long>(value);
}

unsigned long MsgKeyHash::operator()(const MsgKey& key) const {
  // Serial numbers are the part that differs from one pending request to the next.
  return LLHashFunctor()(key.opc_) * 31 + key.sn_ + key.rpid_ * 7UL + key.rmid_;
}

void CQOV_Leader_Task::handleReqMsg(ACE_Message_Block* mb, CQOV_MsgPackage* pkg) {
  CQOVDebugKitGuard log(
      qov::kPublicKit, "void CQOV_Leader_Task::handleReqMsg(ACE_Message_Block*, CQOV_MsgPackage*)");
  if (mb == nullptr || pkg == nullptr) {
    log.error(qov::kLogIdBase + 43, __FUNCTION__, __LINE__,
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
    dropFailedRequest(key, qov::sendCauseOf(errno));
  }
  delete pkg;
  mb->release();
}

bool CQOV_Leader_Task::beginWait(CQOVDebugKitGuard& log, const MsgKey& key, ACE_Message_Block* mb,
                                 CQOV_MsgPackage* pkg) {
  if (mb->cont() == nullptr) {
    // The package stays alive: kept. Nobody waits for an answer, so its sender may still hold it.
    log.warn(qov::kLogIdBase + 37, __FUNCTION__, __LINE__,
             "Manager thread(%d) received invalid request message!", taskMgr()->moduleId());
    mb->release();
    return false;
  }
  std::unique_ptr<TimeoutDesc> desc = takeTimeoutDesc(*mb);
  if (desc == nullptr) {
    log.error(qov::kLogIdBase + 38, __FUNCTION__, __LINE__, "Copy message error!");
    delete pkg;
    mb->release();
    return false;
  }
  if (bindPending(key, desc)) {
    return true;
  }
  const int cause = errno;
  log.warn(qov::kLogIdBase + 39, __FUNCTION__, __LINE__,
           "Failed to bind REQ message! SPID=%u,SMID=%u,RPID=%u,RMID=%u,OPC=%llu,SN=0x%x,TP=%u\n",
           key.spid_, key.smid_, key.rpid_, key.rmid_, static_cast<unsigned long long>(key.opc_),
           key.sn_, pkg->head().type_);
  wakeSender(*desc, cause);
  delete pkg;
  mb->release();
  return false;
}

bool CQOV_Leader_Task::isWaitedFor(const QOVMsgHead& head) const {
  return head.type_ == qov::kRequestType && head.spid_ == leaderQueue_.processId() &&
         head.smid_ == moduleId_;
}

std::unique_ptr<TimeoutDesc> CQOV_Leader_Task::takeTimeoutDesc(ACE_Message_Block& mb) {
  ACE_Message_Block* const block = mb.cont();
  if (block == nullptr) {
    return nullptr;
  }
  void* pointer = nullptr;
  qov::readPointer(*block, pointer);
  mb.cont(nullptr);
  block->release();
  return std::unique_ptr<TimeoutDesc>(static_cast<TimeoutDesc*>(pointer));
}

void CQOV_Leader_Task::wakeSender(const TimeoutDesc& desc, int cause) {
  if (desc.task_ != nullptr) {
    desc.task_->cause_ = cause;
    desc.task_->wakeup();
  }
}

void CQOV_Leader_Task::wakeSenderOf(ACE_Message_Block& mb, int cause) {
  if (!qov::carriesTimeoutDesc(mb)) {
    return;
  }
  if (const std::unique_ptr<TimeoutDesc> desc = takeTimeoutDesc(mb)) {
    wakeSender(*desc, cause);
  }
}

bool CQOV_Leader_Task::bindPending(const MsgKey& key, std::unique_ptr<TimeoutDesc>& desc) {
  PendingEntry* entry = nullptr;
  const int bound = pending_.bind(key, desc.get(), entry);
  if (bound != 0) {
    // Bound already, or no memory.
    errno = bound == -1 ? ENOMEM : EINVAL;
    return false;
  }
  TimeoutDesc& waiting = *desc.release();
  if (waiting.timeout_ == ACE_Time_Value::zero) {
    return true;
  }
  waiting.timerId_ = reactor_.schedule_timer(this, entry, waiting.timeout_);
  if (waiting.timerId_ == kNoTimer) {
    // Without its timer the sender might wait for good.
    desc = unbindPending(key);
    errno = ENOMEM;
  }
  return desc == nullptr;
}

void CQOV_Leader_Task::dropFailedRequest(const MsgKey& key, int cause) {
  if (const std::unique_ptr<TimeoutDesc> desc = unbindPending(key)) {
    desc->task_->cause_ = cause;
    // The queue itself and not wakeup(), so a static task that waits in its response slot is not
    // woken here: kept.
    desc->task_->msg_queue()->pulse();
  }
}

std::unique_ptr<TimeoutDesc> CQOV_Leader_Task::unbindPending(const MsgKey& key) {
  TimeoutDesc* waiting = nullptr;
  if (pending_.unbind(key, waiting) != 0) {
    return nullptr;
  }
  std::unique_ptr<TimeoutDesc> desc(waiting);
  if (desc->timerId_ != kNoTimer) {
    reactor_.cancel_timer(desc->timerId_);
    desc->timerId_ = kNoTimer;
  }
  return desc;
}

void CQOV_Leader_Task::handleRspMsg(ACE_Message_Block* mb, CQOV_MsgPackage* pkg) {
  CQOVDebugKitGuard log(
      qov::kPublicKit, "void CQOV_Leader_Task::handleRspMsg(ACE_Message_Block*, CQOV_MsgPackage*)");
  if (mb == nullptr || pkg == nullptr) {
    log.error(qov::kLogIdBase + 40, __FUNCTION__, __LINE__,
              "Invalid Parameter, pMsgPkg or mb is null.");
    return;
  }
  const QOVMsgHead& head = pkg->head();
  if (head.rpid_ == leaderQueue_.processId() && head.rmid_ == moduleId_) {
    const std::unique_ptr<TimeoutDesc> desc = unbindPending(keyOfResponse(head));
    if (desc != nullptr && desc->task_->putMsg(head.type_, mb, nullptr) != -1) {
      return;
    }
    if (desc == nullptr) {
      log.warn(qov::kLogIdBase + 41, __FUNCTION__, __LINE__,
               "Failed to handle RSP message: SPID=%u,SMID=%u,OPC=%llu,SN=%u!\n", head.spid_,
               head.smid_, static_cast<unsigned long long>(head.opc_), head.sn_);
    }
  } else {
    if (forwordMessage(&head, mb) == 0) {
      return;
    }
    // The places of SPID and SMID show RPID and RMID: kept, tools that read these lines expect it.
    log.warn(qov::kLogIdBase + 42, __FUNCTION__, __LINE__,
             "Failed to forword message: SPID=%u,SMID=%u,OPC=%llu,SN=%u!\n", head.rpid_, head.rmid_,
             static_cast<unsigned long long>(head.opc_), head.sn_);
  }
  delete pkg;
  mb->release();
}

int CQOV_Leader_Task::handle_timeout(const ACE_Time_Value&, const void* act) {
  CQOVDebugKitGuard log(
      qov::kPublicKit,
      "virtual int CQOV_Leader_Task::handle_timeout(const ACE_Time_Value&, const void*)");
  auto* const entry = static_cast<PendingEntry*>(const_cast<void*>(act));
  // A copy: unbinding frees the entry.
  const MsgKey key = entry->key();
  entry->item()->timerId_ = kNoTimer;
  wakeSender(*unbindPending(key), ETIMEDOUT);
  return 0;
}

void CQOV_Leader_Task::handle_mb_hangup() {
  CQOVDebugKitGuard log(qov::kPublicKit, "void CQOV_Leader_Task::handle_mb_hangup()");
  releasePending(Scope::kOtherProcesses);
}

void CQOV_Leader_Task::releasePending(Scope scope) {
  // Without a list of the keys: the leader comes here on its way out, too, whatever memory is left.
  for (auto next = pending_.begin(); next != pending_.end();) {
    const MsgKey key = (*next).key();
    // On before the entry is freed.
    ++next;
    if (scope == Scope::kOtherProcesses && key.rpid_ == leaderQueue_.processId()) {
      continue;
    }
    wakeSender(*unbindPending(key), ECONNABORTED);
  }
}
