#ifndef QOV_TASK_RESPONSE_SLOT_H
#define QOV_TASK_RESPONSE_SLOT_H

#include <ace/Condition_Thread_Mutex.h>
#include <ace/Message_Block.h>
#include <ace/Thread_Mutex.h>

namespace qov {

/// Where the response to a static scheduled task's request arrives: room for one block, and a note
/// that the wait for it is over. An emptied slot alone is no wake-up: the waiter may not wait yet.
///
/// Thread: take() and reset() on the task's thread, the rest from any.
/// Owns:   the block in the slot, with its package.
class ResponseSlot {
 public:
  ResponseSlot();
  ~ResponseSlot();

  ResponseSlot(const ResponseSlot&) = delete;
  ResponseSlot& operator=(const ResponseSlot&) = delete;

  /// Stores `mb`, if not null, in place of one that nobody took, and ends the wait.
  void put(ACE_Message_Block* mb);

  /// Empties the slot and ends the wait that runs, or else the next one, without a block.
  void wake();

  /// As wake(), for every wait to come.
  void stop();

  /// Waits for a block without limit and takes it out; null when the wait was ended without one.
  ACE_Message_Block* take();

  /// Forgets a block or a wake-up that came too late.
  void reset();

 private:
  void empty();

  ACE_Thread_Mutex lock_;
  ACE_Condition<ACE_Thread_Mutex> changed_;
  // Guarded by lock_.
  ACE_Message_Block* block_ = nullptr;
  bool woken_ = false;
  bool stopped_ = false;
};

}  // namespace qov

#endif
