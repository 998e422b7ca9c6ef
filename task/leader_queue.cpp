#include "task/leader_queue.h"

#include <ace/Guard_T.h>
#include <ace/Time_Value.h>
#include <qovpub/qov_task.h>

#include <cerrno>
#include <optional>

#include "task/message_block.h"
#include "task/message_types.h"
#include "task/time_span.h"

namespace qov {

LeaderQueue::LeaderQueue(const CQOV_TaskMgr* mgr, std::uint8_t processId, std::uint8_t moduleId)
    : mgr_(mgr), processId_(processId), moduleId_(moduleId), load_(std::make_shared<ModuleLoad>()) {
  shareLoad(load_);
}

int LeaderQueue::enqueue_tail(ACE_Message_Block* mb, ACE_Time_Value* timeout) {
  if (mb == nullptr) {
    errno = EINVAL;
    return -1;
  }
  switch (kindOf(*mb)) {
    case Kind::kControl:
      return forceTail(mb);
    case Kind::kResponse:
      if (responseFits()) {
        return forceTail(mb);
      }
      break;
    case Kind::kForOwnWorkers:
      return enqueueForOwnWorkers(mb, timeout);
    case Kind::kPassedOn:
      break;
  }
  return TaskQueue::enqueue_tail(mb, timeout);
}

int LeaderQueue::deactivate() {
  const int previous = TaskQueue::deactivate();
  load_->close();
  return previous;
}

ACE_Message_Block* LeaderQueue::takeBatch() {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  // Its bytes stay in the load.
  countedBytes_ = 0;
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
    return Kind::kResponse;
  }
  const bool own = head.rpid_ == processId_ && head.rmid_ == moduleId_;
  return own && isKnownType(head.type_) ? Kind::kForOwnWorkers : Kind::kPassedOn;
}

bool LeaderQueue::responseFits() {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  return cur_bytes_ < 2 * high_water_mark_;
}

int LeaderQueue::enqueueForOwnWorkers(ACE_Message_Block* mb, ACE_Time_Value* timeout) {
  if (load_->hasRoom(nullptr) && load_->waitingSenders() == 0) {
    return TaskQueue::enqueue_tail(mb, timeout);
  }
  const CQOV_Task* const sender = ownSender();
  if (sender != nullptr && sender->makesRoom_) {
    return TaskQueue::enqueue_tail(mb, timeout);
  }
  const TaskQueue* const own = sender != nullptr ? sender->queue_.get() : nullptr;
  std::optional<ModuleLoad::Clock::time_point> deadline;
  if (timeout != nullptr) {
    deadline = steadyDeadline(*timeout);
    if (*deadline <= ModuleLoad::Clock::now()) {
      // Whoever may not wait has no place in the line either.
      return load_->hasRoom(own) ? TaskQueue::enqueue_tail(mb, timeout) : refuse();
    }
  }
  ModuleLoad::Waiter place(*load_, mb->total_size(), own);
  return place.wait(deadline) ? TaskQueue::enqueue_tail(mb, timeout) : refuse();
}

int LeaderQueue::wait_not_full_cond(ACE_Time_Value* timeout) {
  const CQOV_Task* const sender = is_full_i() ? ownSender() : nullptr;
  const bool isLeader = sender != nullptr && sender->queue_.get() == this;
  return isLeader ? 0 : TaskQueue::wait_not_full_cond(timeout);
}

int LeaderQueue::refuse() {
  errno = EWOULDBLOCK;
  return -1;
}

const CQOV_Task* LeaderQueue::ownSender() const {
  const CQOV_Task* const sender = getCurrentTask();
  return sender != nullptr && sender->taskMgr() == mgr_ ? sender : nullptr;
}

}  // namespace qov
