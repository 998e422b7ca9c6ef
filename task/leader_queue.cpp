#include "task/leader_queue.h"

#include <ace/Guard_T.h>

namespace qov {

LeaderQueue::LeaderQueue(const CQOV_TaskMgr* mgr, std::uint8_t processId, std::uint8_t moduleId) {
  countInto(std::make_shared<Admission>(mgr, processId, moduleId, booked_));
}

ACE_Message_Block* LeaderQueue::takeBatch() {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  // Out of the queue, and still in the ledger.
  booked_ = 0;
  ACE_Message_Block* const all = takeAllLocked();
  admission_->lookAgain();
  return all;
}

LeaderQueue::Messages LeaderQueue::takeMessages(std::size_t most) {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  Messages taken{head_, 0, false};
  ACE_Message_Block* last = nullptr;
  while (taken.count < most && head_ != nullptr &&
         head_->msg_type() == ACE_Message_Block::MB_DATA) {
    last = head_;
    head_ = last->next();
    cur_bytes_ -= last->total_size();
    cur_length_ -= last->total_length();
    --cur_count_;
    ++taken.count;
  }
  taken.isAll = head_ == nullptr;
  if (last == nullptr) {
    taken.first = nullptr;
    return taken;
  }
  last->next(nullptr);
  if (head_ != nullptr) {
    head_->prev(nullptr);
  } else {
    tail_ = nullptr;
  }
  // Out of the queue, and still in the ledger.
  booked_ = queueLoad(cur_count_, cur_bytes_);
  admission_->lookAgain();
  return taken;
}

bool LeaderQueue::waitForRoom(const ACE_Message_Block& mb, ACE_Time_Value* timeout) {
  return admission_->admit(mb, timeout, lock_);
}

int LeaderQueue::deactivate_i(int pulse) {
  const int previous = TaskQueue::deactivate_i(pulse);
  admission_->close();
  return previous;
}

}  // namespace qov
