#ifndef QOV_TASK_RESPONSE_SLOT_H
#define QOV_TASK_RESPONSE_SLOT_H

#include <ace/Message_Block.h>
#include <ace/Thread_Mutex.h>

#include <memory>

#include "task/doorbell.h"

namespace qov {

/// Where the response to a static scheduled task's request arrives: room for one block, and a note
/// that the wait for it is over. An emptied slot alone is no wake-up: the waiter may not wait yet.
///
/// Thread: take() and reset() on the task's thread, the rest from any.
/// Owns:   the block in the slot, with its package.
class ResponseSlot {
 public:
  ResponseSlot() = default;
  ~ResponseSlot();

  ResponseSlot(const ResponseSlot&) = delete;
  ResponseSlot& operator=(const ResponseSlot&) = delete;

  // Those that return something say whether a block was dropped that nobody took.

  /// Stores `mb`, if not null, in place of one that nobody took, and ends the wait.
  bool put(ACE_Message_Block* mb);

  /// Empties the slot and ends the wait that runs, or else the next one, without a block.
  bool wake();

  /// As wake(), for every wait to come.
  void stop();

  /// Waits for a block without limit and takes it out; null when the wait was ended without one.
  ACE_Message_Block* take();

  /// Forgets a block or a wake-up that came too late.
  bool reset();

 private:
  bool empty();

  const std::shared_ptr<Doorbell> changed_ = std::make_shared<Doorbell>();
  ACE_Thread_Mutex lock_;
  // Guarded by lock_.
  ACE_Message_Block* block_ = nullptr;
  bool woken_ = false;
  bool stopped_ = false;
};

}  // namespace qov

#endif
