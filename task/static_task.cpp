#include <qovpub/qov_task.h>

#include "task/message_types.h"
#include "task/response_slot.h"

CQOV_StaticSchecheduledTask::CQOV_StaticSchecheduledTask(CQOV_TaskMgr* mgr) : CQOV_CommonTask(mgr) {
  slot_ = std::make_unique<qov::ResponseSlot>();
}

CQOV_StaticSchecheduledTask::~CQOV_StaticSchecheduledTask() = default;

void CQOV_StaticSchecheduledTask::notifyExit() {
  CQOV_Task::notifyExit();
  slot_->stop();
}

int CQOV_StaticSchecheduledTask::wakeup() {
  slot_->wake();
  return 0;
}

int CQOV_StaticSchecheduledTask::putMsg(int type, ACE_Message_Block* mb, ACE_Time_Value* timeout) {
  if (type != qov::kResponseType) {
    return CQOV_Task::putMsg(type, mb, timeout);
  }
  slot_->put(mb);
  return 0;
}

int CQOV_StaticSchecheduledTask::idle() {
  return 0;
}

int CQOV_StaticSchecheduledTask::getMsg(ACE_Message_Block*& mb) {
  mb = slot_->take();
  return 0;
}
