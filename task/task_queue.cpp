#include "task/task_queue.h"

#include <ace/Guard_T.h>
#include <ace/Notification_Strategy.h>
#include <ace/Reverse_Lock_T.h>

#include <cerrno>
#include <limits>
#include <utility>

#include "task/leader_turn.h"
#include "task/message_block.h"
#include "task/time_span.h"

namespace qov {

namespace {

bool isStop(const ACE_Message_Block* mb) {
  return mb != nullptr && mb->msg_type() == ACE_Message_Block::MB_STOP;
}

/// Counts its thread for as long as it lives.
class Counted {
 public:
  explicit Counted(int& count) : count_(count) { ++count_; }
  ~Counted() { --count_; }

  Counted(const Counted&) = delete;
  Counted& operator=(const Counted&) = delete;

 private:
  int& count_;
};

}  // namespace

TaskQueue::~TaskQueue() {
  for (ACE_Message_Block* mb = takeAll(); mb != nullptr;) {
    ACE_Message_Block* const next = mb->next();
    releaseWithPackage(mb);
    mb = next;
  }
}

int TaskQueue::enqueue_tail(ACE_Message_Block* mb, ACE_Time_Value* timeout) {
  if (mb == nullptr) {
    errno = EINVAL;
    return -1;
  }
  ACE_Notification_Strategy* notifier = nullptr;
  int count = 0;
  {
    const RingCollector untilUnlocked;
    ACE_Guard<ACE_Thread_Mutex> guard(lock_);
    if (state_ == DEACTIVATED) {
      errno = ESHUTDOWN;
      return -1;
    }
    if (!waitForRoom(*mb, timeout)) {
      return -1;
    }
    toldToStop_ = toldToStop_ || isStop(mb);
    count = enqueue_tail_i(mb);
    notifier = notification_strategy_;
  }
  if (notifier != nullptr) {
    notifier->notify();
  }
  return count;
}

bool TaskQueue::offer(ACE_Message_Block* mb) {
  const RingCollector untilUnlocked;
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  return !isEndingLocked() && enqueue_tail_i(mb) != -1;
}

bool TaskQueue::isEnding() {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  return isEndingLocked();
}

bool TaskQueue::waitForRoom(const ACE_Message_Block& mb, ACE_Time_Value* timeout) {
  if (isStop(&mb) || !is_full_i()) {
    return true;
  }
  beforeWaiting();
  return wait_not_full_cond(timeout) != -1;
}

int TaskQueue::signal_dequeue_waiters() {
  book();
  if (waitingThreads_ > 0) {
    ring(bell_);
  }
  return 0;
}

int TaskQueue::signal_enqueue_waiters() {
  book();
  return Base::signal_enqueue_waiters();
}

int TaskQueue::flush_i() {
  const int count = Base::flush_i();
  signal_enqueue_waiters();
  return count;
}

void TaskQueue::book() {
  if (admission_ != nullptr) {
    // The own part changes first. So for a moment what the others have may look smaller than it is
    // when the queue is filled, and larger when it is drained; in the latter case the line is
    // looked through right afterwards.
    const QueueLoad now = queueLoad(cur_count_, cur_bytes_);
    admission_->book(booked_.exchange(now), now);
  }
}

int TaskQueue::deactivate_i(int pulse) {
  const int previous = Base::deactivate_i(pulse);
  ring(bell_);
  return previous;
}

int TaskQueue::pulse() {
  const RingCollector untilUnlocked;
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  pulsed_ = true;
  ring(bell_);
  return state_;
}

void TaskQueue::clearPulse() {
  if (pulsed_) {
    pulsed_ = false;
  }
}

int TaskQueue::dequeueBeforeStop(ACE_Message_Block*& mb) {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  if (state_ == DEACTIVATED) {
    errno = ESHUTDOWN;
    return -1;
  }
  if (wait_not_empty_cond(nullptr) == -1) {
    return -1;
  }
  if (isStop(head_)) {
    errno = ESHUTDOWN;
    return -1;
  }
  return dequeue_head_i(mb);
}

ACE_Message_Block* TaskQueue::takeData() {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  ACE_Message_Block* mb = nullptr;
  if (state_ != DEACTIVATED && !is_empty_i() && head_->msg_type() == ACE_Message_Block::MB_DATA) {
    dequeue_head_i(mb);
  }
  return mb;
}

bool TaskQueue::isAwaited() {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  return waitingThreads_ > 0 && is_empty_i();
}

void TaskQueue::countInto(const std::shared_ptr<Admission>& ledger) {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  if (admission_ != nullptr) {
    admission_->book(booked_.exchange(0), 0);
  }
  admission_ = ledger;
  high_water_mark_ = std::numeric_limits<std::size_t>::max();
  low_water_mark_ = high_water_mark_;
  book();
  not_full_cond_.broadcast();
}

ACE_Message_Block* TaskQueue::takeAll() {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  return takeAllLocked();
}

ACE_Message_Block* TaskQueue::takeAllLocked() {
  ACE_Message_Block* const all = head_;
  head_ = nullptr;
  tail_ = nullptr;
  cur_bytes_ = 0;
  cur_length_ = 0;
  cur_count_ = 0;
  book();
  not_full_cond_.broadcast();
  return all;
}

int TaskQueue::wait_not_empty_cond(ACE_Time_Value* timeout) {
  while (is_empty_i()) {
    if (pulsed_) {
      pulsed_ = false;
      errno = ESHUTDOWN;
      return -1;
    }
    if (!waitForBell(timeout)) {
      errno = EWOULDBLOCK;
      return -1;
    }
    if (state_ != ACTIVATED) {
      ring(bell_);  // for the next one that waits
      errno = ESHUTDOWN;
      return -1;
    }
  }
  if (cur_count_ > 1) {
    // Rings are not counted: with more than one block, another waiter may be due, too.
    ring(bell_);
  }
  return 0;
}

bool TaskQueue::waitForBell(const ACE_Time_Value* timeout) {
  const auto deadline = steadyDeadline(timeout);
  const Counted waiting(waitingThreads_);
  // Locked again on every way out: the thread may be cancelled while it waits, and its guards give
  // the lock back.
  ACE_Reverse_Lock<ACE_Thread_Mutex> reversed(lock_);
  const ACE_Guard<ACE_Reverse_Lock<ACE_Thread_Mutex>> unlocked(reversed);
  return bell_->wait(deadline);
}

}  // namespace qov
