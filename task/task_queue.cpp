#include "task/task_queue.h"

#include <ace/Guard_T.h>
#include <ace/Notification_Strategy.h>
#include <ace/Reverse_Lock_T.h>

#include <cerrno>
#include <limits>
#include <utility>

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
  return put(mb, timeout, isStop(mb));
}

int TaskQueue::forceTail(ACE_Message_Block* mb) {
  return put(mb, nullptr, true);
}

bool TaskQueue::offer(ACE_Message_Block* mb) {
  const RingCollector untilUnlocked;
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  return !toldToStop_ && putLocked(mb, nullptr, true) != -1;
}

int TaskQueue::put(ACE_Message_Block* mb, ACE_Time_Value* timeout, bool force) {
  const RingCollector untilUnlocked;
  ACE_Notification_Strategy* notifier = nullptr;
  int count = 0;
  {
    ACE_Guard<ACE_Thread_Mutex> guard(lock_);
    count = putLocked(mb, timeout, force);
    notifier = notification_strategy_;
  }
  if (count != -1 && notifier != nullptr) {
    notifier->notify();
  }
  return count;
}

int TaskQueue::putLocked(ACE_Message_Block* mb, ACE_Time_Value* timeout, bool force) {
  if (state_ == DEACTIVATED) {
    errno = ESHUTDOWN;
    return -1;
  }
  if (!force && wait_not_full_cond(timeout) == -1) {
    return -1;
  }
  toldToStop_ = toldToStop_ || isStop(mb);
  return enqueue_tail_i(mb);
}

int TaskQueue::signal_dequeue_waiters() {
  if (notification_strategy_ == nullptr) {  // or else nobody waits here
    ring(bell_);
  }
  return 0;
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
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  pulsed_ = false;
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

void TaskQueue::countInto(const std::shared_ptr<ModuleLoad>& load) {
  shareLoad(load);
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  high_water_mark_ = std::numeric_limits<std::size_t>::max();
  low_water_mark_ = high_water_mark_;
  not_full_cond_.broadcast();
}

void TaskQueue::shareLoad(const std::shared_ptr<ModuleLoad>& load) {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  if (load_) {
    load_->subtract(countedBytes_.exchange(0));
  }
  load_ = load;
  counted(0);
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
  counted(0);
  not_full_cond_.broadcast();
  return all;
}

int TaskQueue::counted(int result) {
  if (!load_) {
    return result;
  }
  // The own share changes first, see ModuleLoad::hasRoom().
  const std::size_t before = countedBytes_.exchange(cur_bytes_);
  if (cur_bytes_ > before) {
    load_->add(cur_bytes_ - before);
  } else if (cur_bytes_ < before) {
    load_->subtract(before - cur_bytes_);
  }
  return result;
}

int TaskQueue::enqueue_i(ACE_Message_Block* mb) {
  return counted(Base::enqueue_i(mb));
}

int TaskQueue::enqueue_deadline_i(ACE_Message_Block* mb) {
  return counted(Base::enqueue_deadline_i(mb));
}

int TaskQueue::enqueue_tail_i(ACE_Message_Block* mb) {
  return counted(Base::enqueue_tail_i(mb));
}

int TaskQueue::enqueue_head_i(ACE_Message_Block* mb) {
  return counted(Base::enqueue_head_i(mb));
}

int TaskQueue::dequeue_head_i(ACE_Message_Block*& mb) {
  return counted(Base::dequeue_head_i(mb));
}

int TaskQueue::dequeue_prio_i(ACE_Message_Block*& mb) {
  return counted(Base::dequeue_prio_i(mb));
}

int TaskQueue::dequeue_tail_i(ACE_Message_Block*& mb) {
  return counted(Base::dequeue_tail_i(mb));
}

int TaskQueue::dequeue_deadline_i(ACE_Message_Block*& mb) {
  return counted(Base::dequeue_deadline_i(mb));
}

int TaskQueue::flush_i() {
  return counted(Base::flush_i());
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
  std::optional<Doorbell::Clock::time_point> deadline;
  if (timeout != nullptr) {
    deadline = steadyDeadline(*timeout);
  }
  const Counted waiting(waitingThreads_);
  // Locked again on every way out: the thread may be cancelled while it waits, and its guards give
  // the lock back.
  ACE_Reverse_Lock<ACE_Thread_Mutex> reversed(lock_);
  const ACE_Guard<ACE_Reverse_Lock<ACE_Thread_Mutex>> unlocked(reversed);
  return bell_->wait(deadline);
}

}  // namespace qov
