#include "task/response_slot.h"

#include <ace/Guard_T.h>

#include <utility>

#include "task/message_block.h"

namespace qov {

ResponseSlot::ResponseSlot() : changed_(lock_) {}

ResponseSlot::~ResponseSlot() {
  empty();
}

void ResponseSlot::put(ACE_Message_Block* mb) {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  if (mb != nullptr) {
    empty();
    block_ = mb;
  }
  changed_.signal();
}

void ResponseSlot::wake() {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  empty();
  woken_ = true;
  changed_.signal();
}

void ResponseSlot::stop() {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  stopped_ = true;
  changed_.signal();
}

ACE_Message_Block* ResponseSlot::take() {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  while (block_ == nullptr && !woken_ && !stopped_) {
    changed_.wait();
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
