#include "task/leader_queue.h"

#include <ace/Guard_T.h>
#include <ace/OS_Errno.h>
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
    case Kind::kUrgent:
      if (urgentFits()) {
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

int LeaderQueue::enqueueForOwnWorkers(ACE_Message_Block* mb, ACE_Time_Value* timeout) {
  if (load_->hasRoom(nullptr) && load_->waitingSenders() == 0) {
    return TaskQueue::enqueue_tail(mb, timeout);
  }
  const CQOV_Task* const sender = ownSender();
  if (sender != nullptr && sender->pooled_) {
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
  const std::size_t bytes = mb->total_size();
  if (!load_->waitForRoom(bytes, deadline ? &*deadline : nullptr, own)) {
    return refuse();
  }
  const int count = TaskQueue::enqueue_tail(mb, timeout);
  const ACE_Errno_Guard keep(errno);
  load_->subtract(bytes);
  return count;
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
