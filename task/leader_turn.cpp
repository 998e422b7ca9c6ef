#include "task/leader_turn.h"

#include <ace/OS_Errno.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "diag/uncancelled.h"

namespace qov {

namespace {

thread_local LeadingScope* scope = nullptr;
/// How many turns the thread has: a leader's own thread may take one of another leader, too.
thread_local int turnsHere = 0;

}  // namespace

LeaderTurn::LeaderTurn(LeaderWork& work, std::shared_ptr<Doorbell> bell)
    : work_(work), bell_(std::move(bell)) {}

void LeaderTurn::open() {
  std::unique_lock<std::mutex> lock(mutex_);
  closed_ = false;
  take();
  // Senders that came before have left their mark.
  giveBack(lock);
}

void LeaderTurn::close() {
  const std::lock_guard<std::mutex> lock(mutex_);
  closed_ = true;
}

bool LeaderTurn::isMine() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return taken_ && ::pthread_equal(holder_, ::pthread_self()) != 0;
}

bool LeaderTurn::anyIsMine() {
  return turnsHere > 0;
}

void LeaderTurn::takeOwn() {
  std::unique_lock<std::mutex> lock(mutex_);
  while (taken_) {
    ownThreadWaits_ = true;
    lock.unlock();
    bell_->wait();
    lock.lock();
  }
  ownThreadWaits_ = false;
  take();
}

void LeaderTurn::giveOwnBack() {
  std::unique_lock<std::mutex> lock(mutex_);
  giveBack(lock);
}

std::size_t LeaderTurn::workHere(std::size_t most) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (!tryTake()) {
    return 0;
  }
  std::size_t left = most;
  do {
    marked_ = false;
    lock.unlock();
    left -= work_.dispatchSome(left);
    lock.lock();
  } while (marked_ && left > 0 && !ownThreadWaits_);
  giveBack(lock);
  return most - left;
}

void LeaderTurn::leaveToOwnThread() {
  std::unique_lock<std::mutex> lock(mutex_);
  if (tryTake()) {
    marked_ = true;
    giveBack(lock);
  }
}

bool LeaderTurn::tryTake() {
  if (closed_ || taken_ || ownThreadWaits_) {
    marked_ = true;
    return false;
  }
  take();
  return true;
}

void LeaderTurn::take() {
  taken_ = true;
  holder_ = ::pthread_self();
  ++turnsHere;
}

void LeaderTurn::giveBack(std::unique_lock<std::mutex>& lock) {
  while (std::exchange(marked_, false)) {
    lock.unlock();
    work_.wakeOwnThread();
    lock.lock();
  }
  taken_ = false;
  --turnsHere;
  const bool promised = ownThreadWaits_;
  lock.unlock();
  if (promised) {
    bell_->ring();
  }
}

LeadingScope::LeadingScope(bool active) : active_(active && scope == nullptr) {
  if (active_) {
    scope = this;
  }
}

LeadingScope::~LeadingScope() {
  if (!active_) {
    return;
  }
  const ACE_Errno_Guard keep(errno);
  // A thread that is cancelled while it has a turn would keep it.
  const Uncancelled whileInTurn;
  // The list may grow meanwhile: whom a leader passes a message on to comes next.
  for (std::size_t left = kMostMessages; left > 0 && begun_ < count_;) {
    left -= turns_[begun_++]->workHere(left);
  }
  leaveRest();
  scope = nullptr;
}

bool LeadingScope::defer(const std::shared_ptr<LeaderTurn>& turn) {
  return scope != nullptr && scope->add(turn);
}

void LeadingScope::leaveRest() {
  if (scope == nullptr) {
    return;
  }
  while (scope->begun_ < scope->count_) {
    scope->turns_[scope->begun_++]->leaveToOwnThread();
  }
}

bool LeadingScope::add(const std::shared_ptr<LeaderTurn>& turn) {
  const auto begin = turns_.begin();
  const auto end = begin + static_cast<std::ptrdiff_t>(count_);
  if (std::find(begin + static_cast<std::ptrdiff_t>(begun_), end, turn) != end) {
    return true;
  }
  if (count_ == turns_.size()) {
    return false;
  }
  turns_[count_++] = turn;
  return true;
}

void beforeWaiting() {
  LeadingScope::leaveRest();
  ringCollected();
}

LeaderNotification::LeaderNotification(ACE_Reactor& reactor, ACE_Event_Handler& leader,
                                       std::shared_ptr<LeaderTurn> turn)
    : ACE_Reactor_Notification_Strategy(&reactor, &leader, ACE_Event_Handler::WRITE_MASK),
      turn_(std::move(turn)) {}

int LeaderNotification::notify() {
  return LeadingScope::defer(turn_) ? 0 : ACE_Reactor_Notification_Strategy::notify();
}

}  // namespace qov
