#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_task.h>

#include "diag/log_ids.h"
#include "task/module_counters.h"
#include "task/response_slot.h"

CQOV_StaticSchecheduledTask::CQOV_StaticSchecheduledTask(CQOV_TaskMgr* mgr) : CQOV_CommonTask(mgr) {
  slot_ = std::make_unique<qov::ResponseSlot>();
}

CQOV_StaticSchecheduledTask::~CQOV_StaticSchecheduledTask() = default;

void CQOV_StaticSchecheduledTask::notifyExit() {
  CQOVDebugKitGuard log(qov::kPublicKit, "virtual void CQOV_StaticSchecheduledTask::notifyExit()");
  CQOV_Task::notifyExit();
  slot_->stop();
}

int CQOV_StaticSchecheduledTask::wakeup() {
  CQOVDebugKitGuard log(qov::kPublicKit, "virtual int CQOV_StaticSchecheduledTask::wakeup()");
  countDropped(slot_->wake());
  return 0;
}

int CQOV_StaticSchecheduledTask::putMsg(int type, ACE_Message_Block* mb, ACE_Time_Value* timeout) {
  CQOVDebugKitGuard log(qov::kPublicKit,
                        "virtual int CQOV_StaticSchecheduledTask::putMsg(int, ACE_Message_Block*, "
                        "ACE_Time_Value*)");
  if (type != QOVMsgHead::kResponse) {
    return CQOV_Task::putMsg(type, mb, timeout);
  }
  countDropped(slot_->put(mb));
  return 0;
}

void CQOV_StaticSchecheduledTask::countDropped(bool dropped) {
  if (dropped) {
    counters().drop(QOVDropReason::kNobodyWaits);
  }
}

int CQOV_StaticSchecheduledTask::idle() {
  CQOVDebugKitGuard log(qov::kPublicKit, "virtual int CQOV_StaticSchecheduledTask::idle()");
  return 0;
}

int CQOV_StaticSchecheduledTask::getMsg(ACE_Message_Block*& mb) {
  CQOVDebugKitGuard log(qov::kPublicKit,
                        "virtual int CQOV_StaticSchecheduledTask::getMsg(ACE_Message_Block*&)");
  mb = slot_->take();
  return 0;
}
