#include "task/response_slot.h"

#include <ace/Guard_T.h>

#include <utility>

#include "task/message_block.h"

namespace qov {

ResponseSlot::~ResponseSlot() {
  empty();
}

void ResponseSlot::put(ACE_Message_Block* mb) {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  if (mb != nullptr) {
    empty();
    block_ = mb;
  }
  ring(changed_);
}

void ResponseSlot::wake() {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  empty();
  woken_ = true;
  ring(changed_);
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

void ResponseSlot::reset() {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  empty();
  woken_ = false;
}

void ResponseSlot::empty() {
  releaseWithPackage(std::exchange(block_, nullptr));
}

}  // namespace qov
