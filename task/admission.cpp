#include "task/admission.h"

#include <ace/Guard_T.h>
#include <ace/Reverse_Lock_T.h>
#include <qovpub/qov_task.h>

#include <cerrno>
#include <limits>
#include <optional>

#include "task/doorbell.h"
#include "task/leader_turn.h"
#include "task/message_block.h"
#include "task/task_context.h"
#include "task/time_span.h"

namespace qov {

using Clock = Doorbell::Clock;

/// A row of the table: fewer bytes than these must wait in the leader's queue and in the module,
/// there without the `own` ones of the sender.
struct Admission::Need {
  static constexpr std::size_t kNone = std::numeric_limits<std::size_t>::max();

  std::size_t inQueue = kNone;
  std::size_t inModule = kNone;
  const std::atomic<QueueLoad>* own = nullptr;
};

/// A sender's place in the line, from its look for room until its bytes count in the queue. A
/// thread that is cancelled meanwhile leaves the line and gives its room back.
class Admission::Place {
 public:
  Place(Admission& admission, const ACE_Message_Block& mb);
  ~Place();

  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;

  void wait(const ACE_Time_Value* timeout, ACE_Thread_Mutex& lock);
  /// Counts the bytes in the queue, which takes the block next. False when there is no way in.
  bool enter();

 private:
  friend class Admission;

  bool fits(std::size_t inQueue, std::size_t inModule) const;

  Admission& admission_;
  const Need need_;
  Doorbell woken_;
  // Changed with the mutex of the admission held.
  std::atomic<bool> letIn_{false};
  std::size_t bytes_;
  Place* next_ = nullptr;
};

Admission::Place::Place(Admission& admission, const ACE_Message_Block& mb)
    : admission_(admission), need_(admission.needOf(mb)), bytes_(mb.total_size()) {
  const std::lock_guard<std::mutex> held(admission_.mutex_);
  Place** end = &admission_.first_;
  while (*end != nullptr) {
    end = &(*end)->next_;
  }
  *end = this;
  ++admission_.waiting_;
  admission_.letIn();
}

Admission::Place::~Place() {
  const std::lock_guard<std::mutex> held(admission_.mutex_);
  Place** place = &admission_.first_;
  while (*place != this) {
    place = &(*place)->next_;
  }
  *place = next_;
  --admission_.waiting_;
  if (letIn_) {
    admission_.promised_ -= bytes_;
  }
  admission_.letIn();
}

void Admission::Place::wait(const ACE_Time_Value* timeout, ACE_Thread_Mutex& lock) {
  const std::optional<Clock::time_point> deadline = steadyDeadline(timeout);
  if (letIn_ || (deadline && *deadline <= Clock::now())) {
    return;
  }
  // Locked again on every way out: the thread may be cancelled while it waits, and its guards give
  // the lock back.
  ACE_Reverse_Lock<ACE_Thread_Mutex> reversed(lock);
  const ACE_Guard<ACE_Reverse_Lock<ACE_Thread_Mutex>> unlocked(reversed);
  woken_.wait(deadline);
}

bool Admission::Place::enter() {
  const std::lock_guard<std::mutex> held(admission_.mutex_);
  if (!letIn_ || admission_.closed_) {
    errno = admission_.closed_ ? ESHUTDOWN : EWOULDBLOCK;
    return false;
  }
  // Ahead of the queue, which finds nothing left to book then: its room is taken at once.
  admission_.promised_ -= bytes_;
  const QueueLoad load = queueLoad(1, bytes_);
  admission_.inQueue_ += load;
  admission_.add(load);
  bytes_ = 0;
  return true;
}

bool Admission::Place::fits(std::size_t inQueue, std::size_t inModule) const {
  const std::size_t own = need_.own != nullptr ? bytesIn(*need_.own) : 0;
  return inQueue < need_.inQueue && inModule < need_.inModule + own;
}

Admission::Admission(const CQOV_TaskMgr* mgr, std::uint8_t processId, std::uint8_t moduleId,
                     std::atomic<QueueLoad>& inQueue)
    : mgr_(mgr), processId_(processId), moduleId_(moduleId), inQueue_(inQueue) {}

bool Admission::admit(const ACE_Message_Block& mb, const ACE_Time_Value* timeout,
                      ACE_Thread_Mutex& lock) {
  // Room for every row of the table: the leader's queue holds no more than the module.
  if (booked() < kLimit && waitingSenders() == 0) {
    return true;
  }
  Place place(*this, mb);
  place.wait(timeout, lock);
  return place.enter();
}

void Admission::add(QueueLoad more) {
  const QueueLoad now = booked_ += more;
  mostBooked_.raiseTo(bytesIn(now));
  mostBookedBlocks_.raiseTo(blocksIn(now));
}

void Admission::book(QueueLoad before, QueueLoad now) {
  if (now > before) {
    add(now - before);
  } else if (now < before) {
    booked_ -= before - now;
    lookAgain();
  }
}

void Admission::lookAgain() {
  if (waitingSenders() > 0) {
    const std::lock_guard<std::mutex> held(mutex_);
    letIn();
  }
}

void Admission::close() {
  const std::lock_guard<std::mutex> held(mutex_);
  closed_ = true;
  letIn();
}

Admission::Need Admission::needOf(const ACE_Message_Block& mb) const {
  if (mb.msg_type() == ACE_Message_Block::MB_STOP ||
      mb.msg_type() == ACE_Message_Block::MB_HANGUP || (turn_ != nullptr && turn_->isMine())) {
    return {};
  }
  // What a leader passes on is not of the task whose thread does that.
  const CQOV_Task* const task = LeaderTurn::anyIsMine() ? nullptr : getCurrentTask();
  const CQOV_Task* const sender = task != nullptr && task->taskMgr() == mgr_ ? task : nullptr;
  const CQOV_MsgPackage* const pkg = packageOf(mb);
  if (pkg != nullptr && pkg->head().type_ == QOVMsgHead::kResponse) {
    return {2 * kLimit};
  }
  const bool toItself = pkg != nullptr && QOVMsgHead::isType(pkg->head().type_) &&
                        pkg->head().rpid_ == processId_ && pkg->head().rmid_ == moduleId_;
  if (!toItself || (sender != nullptr && TaskContext::of(*sender).makesRoom_)) {
    return {kLimit};
  }
  return {kLimit, kLimit, sender != nullptr ? &TaskContext::of(*sender).queue_->booked() : nullptr};
}

void Admission::letIn() {
  // Read once: room that comes up midway would go to whoever is looked at next, past those before.
  // Whoever makes it comes here next and starts again from the first.
  const std::size_t inModule = booked();
  const std::size_t inQueue = bytesIn(inQueue_);
  for (Place* place = first_; place != nullptr; place = place->next_) {
    if (!place->letIn_ && (closed_ || place->fits(inQueue + promised_, inModule + promised_))) {
      promised_ += place->bytes_;
      place->letIn_ = true;
      place->woken_.ring();
    }
  }
}

}  // namespace qov
