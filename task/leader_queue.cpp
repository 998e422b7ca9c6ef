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
  return takeAllLocked();
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
