#include "task/response_slot.h"

#include <ace/Guard_T.h>

#include <utility>

#include "task/message_block.h"

namespace qov {

ResponseSlot::~ResponseSlot() {
  empty();
}

bool ResponseSlot::put(ACE_Message_Block* mb) {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  const bool dropped = mb != nullptr && empty();
  if (mb != nullptr) {
    block_ = mb;
  }
  ring(changed_);
  return dropped;
}

bool ResponseSlot::wake() {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  const bool dropped = empty();
  woken_ = true;
  ring(changed_);
  return dropped;
}

void ResponseSlot::stop() {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  stopped_ = true;
  ring(changed_);
}

ACE_Message_Block* ResponseSlot::take() {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  while (block_ == nullptr && !woken_ && !stopped_) {
    guard.release();
    changed_->wait();
    guard.acquire();
  }
  woken_ = false;
  return std::exchange(block_, nullptr);
}

bool ResponseSlot::reset() {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  woken_ = false;
  return empty();
}

bool ResponseSlot::empty() {
  const bool dropped = block_ != nullptr;
  releaseWithPackage(std::exchange(block_, nullptr));
  return dropped;
}

}  // namespace qov
