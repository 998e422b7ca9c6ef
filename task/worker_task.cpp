#include <ace/Log_Msg.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_task.h>
#include <qovpub/qov_task_mgr.h>

#include <cerrno>
#include <cstdint>
#include <exception>
#include <memory>
#include <sstream>

#include "diag/log_ids.h"
#include "task/default_response.h"
#include "task/ending_thread.h"
#include "task/later_answer.h"
#include "task/message_block.h"
#include "task/serve_next.h"
#include "task/task_context.h"

namespace {

using qov::TaskContext;

/// The dump of `pkg` for a record at `level`; empty when such records are off. It is empty without
/// memory, too: the class promises the record, and that the worker goes on, whatever a handler has
/// thrown.
std::string dumpFor(ACE_Log_Priority level, const CQOV_MsgPackage& pkg) {
  if (!CQOVDebugKit::isOn(level)) {
    return {};
  }
  try {
    std::ostringstream text;
    pkg.dump(text);
    return text.str();
  } catch (...) {
    qov::passOnEndOfThread();
    return {};
  }
}

void dropLeftOvers(CQOV_CommonTask& task) {
  // Nobody takes them any more, and until they are gone they count into the load of the module.
  for (ACE_Message_Block* mb = TaskContext::of(task).queue_->takeAll(); mb != nullptr;) {
    ACE_Message_Block* const next = mb->next();
    if (mb->msg_type() == ACE_Message_Block::MB_DATA) {
      TaskContext::countersOf(task).drop(QOVDropReason::kStopped, qov::tracedIn(*mb));
    }
    qov::releaseWithPackage(mb);
    mb = next;
  }
}

int handleTimed(CQOV_CommonTask& task, CQOV_MsgPackage& pkg) {
  const qov::HandlingTime time(TaskContext::countersOf(task), pkg.head(), task);
  return task.handleMessage(pkg);
}

void handle(CQOV_CommonTask& task, CQOVDebugKitGuard& log, CQOV_MsgPackage& pkg) {
  const QOVMsgHead& head = pkg.head();
  // The place of RPID shows RMID: kept, tools that read these lines expect it.
  log.debug(qov::log_id::kTraffic, __FUNCTION__, __LINE__,
            "Worker(%d) recv msg: SPID=%u,SMID=%u,RPID=%u,RMID=%u,OPC=%llu,SN=0x%x,TP=%u!\n",
            task.taskMgr()->moduleId(), head.spid_, head.smid_, head.rmid_, head.rmid_,
            static_cast<unsigned long long>(head.opc_), head.sn_, head.type_);
  try {
    const int result = handleTimed(task, pkg);
    if (result != 0) {
      log.warn(qov::log_id::kHandlerResult, __FUNCTION__, __LINE__,
               "Failed to handle message, error code is %d!\n%s", result,
               dumpFor(LM_WARNING, pkg).c_str());
    }
  } catch (const std::exception& error) {
    // The number is the address of the exception's text: kept.
    log.error(qov::log_id::kHandlerException, __FUNCTION__, __LINE__,
              "Failed to handle message, error is %d!\n%s",
              static_cast<int>(reinterpret_cast<std::intptr_t>(error.what())),
              dumpFor(LM_ERROR, pkg).c_str());
  } catch (...) {
    qov::passOnEndOfThread();
    log.error(qov::log_id::kHandlerUnknownException, __FUNCTION__, __LINE__,
              "Failed to handle message, error is %d!\n%s", 0, dumpFor(LM_ERROR, pkg).c_str());
  }
}

void serve(CQOV_CommonTask& task, CQOVDebugKitGuard& log, const ACE_Message_Block& block) {
  void* pointer = nullptr;
  std::unique_ptr<CQOV_MsgPackage> pkg;
  if (!qov::readPointer(block, pointer)) {
    log.warn(qov::log_id::kWorkerBadLength, __FUNCTION__, __LINE__,
             "Invalid message, length isn't equal to %u.",
             static_cast<unsigned int>(qov::kPointerSize));
  } else if (pointer != nullptr) {
    pkg.reset(static_cast<CQOV_MsgPackage*>(pointer));
    if (pkg->head().type_ != QOVMsgHead::kResponse) {
      handle(task, log, *pkg);
    } else if (!qov::LaterAnswer::run(*pkg, task)) {
      // Too late for the send() that waited for it, and no message that an idle worker was given.
      TaskContext::countersOf(task).drop(QOVDropReason::kNobodyWaits, pkg->head());
      return;
    }
  }
  task.idle();
}

}  // namespace

namespace qov {

bool serveNext(CQOV_CommonTask& task, CQOVDebugKitGuard& log, ACE_Time_Value* until) {
  ACE_Message_Block* head = nullptr;
  if (task.msg_queue()->dequeue_head(head, until) == -1) {
    if (until == nullptr || errno != EWOULDBLOCK) {
      log.warn(log_id::kWorkerNoMessage, "svc", __LINE__, "Get message from message queue failed.");
      task.msg_queue()->activate();
    }
    return true;
  }
  const BlockPtr block(head);
  if (block->msg_type() == ACE_Message_Block::MB_STOP) {
    task.msg_queue()->deactivate();
    dropLeftOvers(task);
    log.info(log_id::kWorkerExits, "svc", __LINE__, "Task(%d) will exit!",
             task.taskMgr()->moduleId());
    return false;
  }
  serve(task, log, *block);
  return true;
}

}  // namespace qov

CQOV_CommonTask::CQOV_CommonTask(CQOV_TaskMgr* mgr) : CQOV_Task(mgr) {}

int CQOV_CommonTask::svc() {
  CQOVDebugKitGuard log(qov::kPublicKit, "virtual int CQOV_CommonTask::svc()");
  while (qov::serveNext(*this, log, nullptr)) {
  }
  return 0;
}

CQOV_CommonTaskEx::CQOV_CommonTaskEx(CQOV_TaskMgr* mgr) : CQOV_CommonTask(mgr) {}

int CQOV_CommonTaskEx::handleMessage(CQOV_MsgPackage& req) {
  CQOVDebugKitGuard log(qov::kPublicKit,
                        "virtual int CQOV_CommonTaskEx::handleMessage(CQOV_MsgPackage&)");
  std::unique_ptr<CQOV_MsgPackage> response;
  const int result = qov::handleRequest(*this, req, response);
  if (response == nullptr) {
    if (req.head().type_ != QOVMsgHead::kRequest) {
      return result;
    }
    response = qov::makeDefaultResponse(req, result);
  }
  // The addresses stay as they are, see the class: kept.
  response->head() = req.head();
  response->head().type_ = QOVMsgHead::kResponse;
  send(response.release(), nullptr, true);
  return result;
}
