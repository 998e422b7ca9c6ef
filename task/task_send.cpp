#include <ace/OS_NS_sys_time.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_leader_task.h>
#include <qovpub/qov_task.h>
#include <qovpub/qov_task_mgr.h>

#include <cerrno>
#include <new>

#include "task/log_ids.h"
#include "task/message_block.h"
#include "task/message_types.h"
#include "task/response_slot.h"
#include "task/task_queue.h"
#include "task/time_span.h"

namespace {

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

}  // namespace

int CQOV_Task::send(const CQOV_MsgPackage* req, CQOV_MsgPackage*& rsp, ACE_Time_Value* timeout,
                    bool freeReq) {
  CQOVDebugKitGuard log(qov::kPublicKit,
                        "int CQOV_Task::send(const CQOV_MsgPackage*, CQOV_MsgPackage*&, "
                        "ACE_Time_Value*, bool)");
  if (req == nullptr || rsp != nullptr) {
    log.warn(qov::kLogIdBase + 2, __FUNCTION__, __LINE__,
             "reqest-pointor is null pointor, or respond-pointor is not null!");
    if (freeReq) {
      delete req;
    }
    return -1;
  }
  forgetLateAnswer();
  const ACE_Time_Value limit = timeout != nullptr ? *timeout : ACE_Time_Value::zero;
  std::unique_ptr<TimeoutDesc> desc(new (std::nothrow) TimeoutDesc{this, limit, -1});
  ACE_Message_Block* const block = makeRequestBlock(req, desc);
  if (block == nullptr) {
    delete req;
    return -1;
  }
  // A copy: the request belongs to the runtime before the response is here.
  const QOVMsgHead head = req->head();
  log.debug(qov::kTrafficLogId, __FUNCTION__, __LINE__,
            "Worker(%d) send msg: SPID=%u,SMID=%u,RPID=%u,RMID=%u,OPC=%llu,SN=0x%x,TP=%u!\n",
            taskMgr_->moduleId(), head.spid_, head.smid_, head.rpid_, head.rmid_,
            static_cast<unsigned long long>(head.opc_), head.sn_, head.type_);
  Deadline deadline(timeout);
  if (taskMgr_->putq(block, deadline.get()) == -1) {
    if (freeReq) {
      delete req;
    }
    block->release();
    log.error(qov::kLogIdBase + 3, __FUNCTION__, __LINE__, "Worker(%d) failed to send msg!",
              taskMgr_->moduleId());
    return -1;
  }
  // The leader owns the descriptor from here on.
  static_cast<void>(desc.release());
  return waitForResponse(log, head.opc_, head.sn_, rsp);
}

void CQOV_Task::forgetLateAnswer() {
  queue_->clearPulse();
  if (slot_) {
    slot_->reset();
  }
}

ACE_Message_Block* CQOV_Task::awaitAnswerTo(std::uint64_t opc, std::uint32_t sn) {
  for (;;) {
    ACE_Message_Block* block = nullptr;
    getMsg(block);
    const CQOV_MsgPackage* const pkg = block != nullptr ? qov::packageOf(*block) : nullptr;
    if (pkg == nullptr || pkg->head().type_ != qov::kResponseType ||
        (pkg->head().opc_ == opc && pkg->head().sn_ == sn)) {
      return block;
    }
    // The response to an earlier request whose send() was ended before it came.
    qov::releaseWithPackage(block);
  }
}

int CQOV_Task::waitForResponse(CQOVDebugKitGuard& log, std::uint64_t opc, std::uint32_t sn,
                               CQOV_MsgPackage*& rsp) {
  ACE_Message_Block* const block = awaitAnswerTo(opc, sn);
  if (block == nullptr) {
    log.error(qov::kLogIdBase + 4, __FUNCTION__, __LINE__, "Worker(%d) failed to get msg!",
              taskMgr_->moduleId());
    return -1;
  }
  void* pointer = nullptr;
  const bool valid = qov::readPointer(*block, pointer);
  block->release();
  if (!valid) {
    log.error(qov::kLogIdBase + 5, __FUNCTION__, __LINE__, "Message length isn't equal to %u.",
              static_cast<unsigned int>(qov::kPointerSize));
    return -1;
  }
  std::unique_ptr<CQOV_MsgPackage> response(static_cast<CQOV_MsgPackage*>(pointer));
  if (response == nullptr) {
    log.error(qov::kLogIdBase + 6, __FUNCTION__, __LINE__, "Worker(%d) failed to get msg!",
              taskMgr_->moduleId());
    return -1;
  }
  const QOVMsgHead& head = response->head();
  log.debug(qov::kTrafficLogId, __FUNCTION__, __LINE__,
            "Worker(%d) recv msg: SPID=%u,SMID=%u,RPID=%u,RMID=%u,OPC=%llu,SN=0x%x,TP=%u!\n",
            taskMgr_->moduleId(), head.spid_, head.smid_, head.rpid_, head.rmid_,
            static_cast<unsigned long long>(head.opc_), head.sn_, head.type_);
  if (head.mst_ != 0) {
    return head.mst_;
  }
  rsp = response.release();
  return 0;
}

int CQOV_Task::send(const CQOV_MsgPackage* req, ACE_Time_Value* timeout, bool freeReq) {
  CQOVDebugKitGuard log(qov::kPublicKit,
                        "int CQOV_Task::send(const CQOV_MsgPackage*, ACE_Time_Value*, bool)");
  if (req == nullptr) {
    log.warn(qov::kLogIdBase + 7, __FUNCTION__, __LINE__, "Null pointer of pReq!");
    return -1;
  }
  ACE_Message_Block* const block = qov::makePointerBlock(req);
  if (block == nullptr) {
    delete req;
    return -1;
  }
  const QOVMsgHead& head = req->head();
  log.debug(qov::kTrafficLogId, __FUNCTION__, __LINE__,
            "Worker(%d) send msg: SPID=%u,SMID=%u,RPID=%u,RMID=%u,OPC=%llu,SN=0x%x,TP=%u.",
            taskMgr_->moduleId(), head.spid_, head.smid_, head.rpid_, head.rmid_,
            static_cast<unsigned long long>(head.opc_), head.sn_, head.type_);
  Deadline deadline(timeout);
  if (taskMgr_->putq(block, deadline.get()) == -1) {
    if (freeReq) {
      delete req;
    }
    block->release();
    return -1;
  }
  return 0;
}
