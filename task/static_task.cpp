#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_task.h>

#include "diag/log_ids.h"
#include "task/task_context.h"

namespace {

using qov::TaskContext;

qov::ResponseSlot& slotOf(const CQOV_StaticSchecheduledTask& task) {
  return *TaskContext::of(task).slot_;
}

/// Counts a response that nobody took.
void countDropped(const CQOV_StaticSchecheduledTask& task, bool dropped) {
  if (dropped) {
    TaskContext::countersOf(task).drop(QOVDropReason::kNobodyWaits);
  }
}

}  // namespace

CQOV_StaticSchecheduledTask::CQOV_StaticSchecheduledTask(CQOV_TaskMgr* mgr) : CQOV_CommonTask(mgr) {
  TaskContext::of(*this).slot_ = std::make_unique<qov::ResponseSlot>();
}

CQOV_StaticSchecheduledTask::~CQOV_StaticSchecheduledTask() = default;

void CQOV_StaticSchecheduledTask::notifyExit() {
  CQOVDebugKitGuard log(qov::kPublicKit, "virtual void CQOV_StaticSchecheduledTask::notifyExit()");
  CQOV_Task::notifyExit();
  // Without memory for its MB_STOP the task goes on, and waits for responses as before.
  if (TaskContext::of(*this).queue_->isEnding()) {
    slotOf(*this).stop();
  }
}

int CQOV_StaticSchecheduledTask::wakeup() {
  CQOVDebugKitGuard log(qov::kPublicKit, "virtual int CQOV_StaticSchecheduledTask::wakeup()");
  countDropped(*this, slotOf(*this).wake());
  return 0;
}

int CQOV_StaticSchecheduledTask::putMsg(int type, ACE_Message_Block* mb, ACE_Time_Value* timeout) {
  CQOVDebugKitGuard log(qov::kPublicKit,
                        "virtual int CQOV_StaticSchecheduledTask::putMsg(int, ACE_Message_Block*, "
                        "ACE_Time_Value*)");
  if (type != QOVMsgHead::kResponse) {
    return CQOV_Task::putMsg(type, mb, timeout);
  }
  countDropped(*this, slotOf(*this).put(mb));
  return 0;
}

int CQOV_StaticSchecheduledTask::idle() {
  CQOVDebugKitGuard log(qov::kPublicKit, "virtual int CQOV_StaticSchecheduledTask::idle()");
  return 0;
}

int CQOV_StaticSchecheduledTask::getMsg(ACE_Message_Block*& mb) {
  CQOVDebugKitGuard log(qov::kPublicKit,
                        "virtual int CQOV_StaticSchecheduledTask::getMsg(ACE_Message_Block*&)");
  mb = slotOf(*this).take();
  return 0;
}
