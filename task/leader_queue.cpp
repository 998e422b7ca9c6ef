#include "task/leader_queue.h"

#include <ace/Guard_T.h>
#include <ace/OS_NS_sys_time.h>
#include <ace/Time_Value.h>
#include <qovpub/qov_task.h>

#include <cerrno>

#include "task/message_block.h"
#include "task/message_types.h"
#include "task/time_span.h"

namespace qov {

LeaderQueue::LeaderQueue(const CQOV_TaskMgr* mgr, std::uint8_t processId, std::uint8_t moduleId)
    : mgr_(mgr),
      processId_(processId),
      moduleId_(moduleId),
      load_(std::make_shared<ModuleLoad>()) {}

int LeaderQueue::enqueue_tail(ACE_Message_Block* mb, ACE_Time_Value* timeout) {
  if (mb == nullptr) {
    errno = EINVAL;
    return -1;
  }
  switch (kindOf(*mb)) {
    case Kind::kControl:
      return forceTail(mb);
    case Kind::kUrgent:
      if (urgentFits()) {
        return forceTail(mb);
      }
      break;
    case Kind::kForOwnWorkers:
      if (!waitForModule(timeout)) {
        return -1;
      }
      break;
    case Kind::kPassedOn:
      break;
  }
  return TaskQueue::enqueue_tail(mb, timeout);
}

int LeaderQueue::deactivate() {
  const int previous = TaskQueue::deactivate();
  load_->roomMayHaveCome();
  return previous;
}

ACE_Message_Block* LeaderQueue::takeBatch() {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  load_->add(cur_bytes_);
  return takeAllLocked();
}

LeaderQueue::Kind LeaderQueue::kindOf(const ACE_Message_Block& mb) const {
  if (mb.msg_type() == ACE_Message_Block::MB_STOP ||
      mb.msg_type() == ACE_Message_Block::MB_HANGUP) {
    return Kind::kControl;
  }
  const CQOV_MsgPackage* const pkg = packageOf(mb);
  if (pkg == nullptr) {
    return Kind::kPassedOn;
  }
  const QOVMsgHead& head = pkg->head();
  if (head.type_ == kResponseType) {
    return Kind::kUrgent;
  }
  const bool own = head.rpid_ == processId_ && head.rmid_ == moduleId_;
  if (!own || !isKnownType(head.type_)) {
    return Kind::kPassedOn;
  }
  return carriesTimeoutDesc(mb) ? Kind::kUrgent : Kind::kForOwnWorkers;
}

bool LeaderQueue::urgentFits() {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  return cur_bytes_ < 2 * high_water_mark_;
}

bool LeaderQueue::moduleHasRoom() {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  // A stopped queue lets everybody through, to be refused by the queue itself.
  return state_ == DEACTIVATED || cur_bytes_ + load_->waiting() < high_water_mark_;
}

bool LeaderQueue::sentByOwnThread() const {
  const CQOV_Task* const sender = getCurrentTask();
  return sender != nullptr && sender->taskMgr() == mgr_;
}

bool LeaderQueue::waitForModule(const ACE_Time_Value* timeout) {
  const auto hasRoom = [this] { return moduleHasRoom(); };
  if (hasRoom() || sentByOwnThread()) {
    return true;
  }
  bool room = false;
  if (timeout == nullptr) {
    room = load_->waitForRoom(nullptr, hasRoom);
  } else if (const auto deadline = steadyDeadline(*timeout); deadline > ModuleLoad::Clock::now()) {
    room = load_->waitForRoom(&deadline, hasRoom);
  }
  if (!room) {
    errno = EWOULDBLOCK;
  }
  return room;
}

}  // namespace qov
