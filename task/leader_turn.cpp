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
  change([](unsigned int state) { return (state & ~kClosed) | kTaken; });
  hold();
  // Senders that came before have left their mark.
  giveBack();
}

void LeaderTurn::close() {
  state_ |= kClosed;
}

LeaderProgress LeaderTurn::progress(bool messagesWait) const {
  const unsigned int state = state_;
  // Nobody gets a turn that is closed.
  const bool isWaitedFor = messagesWait && (state & kClosed) == 0;
  return {steps_.load(std::memory_order_relaxed), (state & kTaken) != 0 || isWaitedFor};
}

void LeaderTurn::step() {
  // Nobody else writes it.
  steps_.store(steps_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

bool LeaderTurn::isMine() {
  return holder_.load(std::memory_order_relaxed) == ::pthread_self();
}

bool LeaderTurn::anyIsMine() {
  return turnsHere > 0;
}

void LeaderTurn::takeOwn() {
  const auto takeOrWait = [](unsigned int state) {
    return (state & kTaken) != 0 ? state | kOwnThreadWaits : (state & ~kOwnThreadWaits) | kTaken;
  };
  while ((change(takeOrWait) & kTaken) != 0) {
    bell_->wait();
  }
  hold();
}

std::size_t LeaderTurn::workHere(std::size_t most) {
  if (!tryTake()) {
    return 0;
  }
  std::size_t left = most - work_.dispatchSome(most);
  while (left > 0 && (state_ & (kMarked | kOwnThreadWaits)) == kMarked) {
    state_ &= ~kMarked;
    left -= work_.dispatchSome(left);
  }
  giveBack();
  return most - left;
}

void LeaderTurn::leaveToOwnThread() {
  if (tryTake()) {
    state_ |= kMarked;
    giveBack();
  }
}

template <class Next>
unsigned int LeaderTurn::change(Next next) {
  unsigned int state = state_;
  while (!state_.compare_exchange_weak(state, next(state))) {
  }
  return state;
}

bool LeaderTurn::tryTake() {
  constexpr unsigned int kUnavailable = kClosed | kTaken | kOwnThreadWaits;
  const unsigned int before = change(
      [](unsigned int state) { return state | ((state & kUnavailable) != 0 ? kMarked : kTaken); });
  if ((before & kUnavailable) != 0) {
    return false;
  }
  hold();
  return true;
}

void LeaderTurn::hold() {
  holder_.store(::pthread_self(), std::memory_order_relaxed);
  ++turnsHere;
  step();
}

void LeaderTurn::giveBack() {
  // First: another thread may take the turn in the step that frees it.
  holder_.store(pthread_t{}, std::memory_order_relaxed);
  --turnsHere;
  const auto clearMarkOrFree = [](unsigned int state) {
    return state & ~((state & kMarked) != 0 ? kMarked : kTaken);
  };
  unsigned int before = change(clearMarkOrFree);
  while ((before & kMarked) != 0) {
    work_.wakeOwnThread();
    before = change(clearMarkOrFree);
  }
  if ((before & kOwnThreadWaits) != 0) {
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
