#include "task/wait_reactor.h"

#include <ace/High_Res_Timer.h>
#include <ace/OS_Errno.h>
#include <ace/Thread.h>
#include <ace/Timer_Queue_T.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <optional>

#include "task/time_span.h"

namespace qov {

namespace {

constexpr u_int kSpokes = 1024;
constexpr u_int kResolutionMs = 100;
constexpr std::size_t kUsualNotifications = 8;

std::chrono::microseconds toDuration(const ACE_Time_Value& span) {
  return std::chrono::seconds(span.sec()) + std::chrono::microseconds(span.usec());
}

int callHandler(ACE_Event_Handler& handler, ACE_Reactor_Mask mask) {
  if (ACE_BIT_ENABLED(mask, ACE_Event_Handler::WRITE_MASK)) {
    return handler.handle_output(ACE_INVALID_HANDLE);
  }
  if (ACE_BIT_ENABLED(mask, ACE_Event_Handler::READ_MASK)) {
    return handler.handle_input(ACE_INVALID_HANDLE);
  }
  return handler.handle_exception(ACE_INVALID_HANDLE);
}

}  // namespace

WaitReactor::WaitReactor()
    : timerNodes_(ACE_FREE_LIST_WITH_POOL, kSpokes),
      wheel_(makeWheel()),
      timers_(*wheel_),
      owner_(ACE_Thread::self()) {
  // Computed here, once, instead of by whichever threads read the clock first.
  ACE_High_Res_Timer::global_scale_factor();
  // A notification of a usual number of handlers needs no memory then.
  pending_.reserve(kUsualNotifications);
  dispatching_.reserve(kUsualNotifications);
}

WaitReactor::~WaitReactor() = default;

std::unique_ptr<WaitReactor::TimerWheel> WaitReactor::makeWheel() {
  if (timerNodes_.size() < kSpokes) {
    throw std::bad_alloc();
  }
  const ACE_Errno_Guard keep(errno);
  errno = 0;
  auto wheel = std::make_unique<TimerWheel>(kSpokes, kResolutionMs, 0, &timerCall_, &timerNodes_);
  // The only sign of a part that could not be had.
  if (errno != ENOMEM) {
    return wheel;
  }
  if (timerNodes_.size() == kSpokes) {
    // It has no spokes, and its destructor would reach for them. Nothing else is in it yet.
    ::operator delete(wheel.release());
  }
  throw std::bad_alloc();
}

int WaitReactor::handle_events(ACE_Time_Value* max_wait_time) {
  waitForWork(max_wait_time);
  if (deactivated() != 0) {
    errno = ESHUTDOWN;
    return -1;
  }
  // A response that is here already comes before its own time-out. Handlers take a bounded batch
  // each, so the timers get their turn.
  const int called = dispatchNotifications();
  return called + (timers_.is_empty() ? 0 : timers_.expire());
}

int WaitReactor::handle_events(ACE_Time_Value& max_wait_time) {
  return handle_events(&max_wait_time);
}

int WaitReactor::alertable_handle_events(ACE_Time_Value* max_wait_time) {
  return handle_events(max_wait_time);
}

int WaitReactor::alertable_handle_events(ACE_Time_Value& max_wait_time) {
  return handle_events(&max_wait_time);
}

int WaitReactor::work_pending(const ACE_Time_Value& max_wait_time) {
  waitForWork(&max_wait_time);
  const std::lock_guard<std::mutex> lock(mutex_);
  const bool due = !timers_.is_empty() && timers_.earliest_time() <= timers_.gettimeofday();
  return !pending_.empty() || due ? 1 : 0;
}

bool WaitReactor::hasWork() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return deactivated_ || !pending_.empty();
}

std::optional<Doorbell::Clock::time_point> WaitReactor::deadlineOf(
    const ACE_Time_Value* maxWait) const {
  const Doorbell::Clock::time_point now = Doorbell::Clock::now();
  std::optional<Doorbell::Clock::time_point> deadline;
  if (maxWait != nullptr) {
    deadline = now + toDuration(limitedSpan(*maxWait));
  }
  if (!timers_.is_empty()) {
    const auto due =
        now + toDuration(timers_.earliest_time() - ACE_High_Res_Timer::gettimeofday_hr());
    deadline = deadline ? std::min(*deadline, due) : due;
  }
  return deadline;
}

void WaitReactor::waitForWork(const ACE_Time_Value* maxWait) {
  // A ring says that something has changed since the last look, so one is taken after the look.
  if (!hasWork()) {
    bell_->wait(deadlineOf(maxWait));
  }
}

int WaitReactor::dispatchNotifications() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    dispatching_.clear();
    dispatching_.swap(pending_);
  }
  for (const Notification& notification : dispatching_) {
    if (callHandler(*notification.handler_, notification.mask_) == -1) {
      notification.handler_->handle_close(ACE_INVALID_HANDLE, ACE_Event_Handler::EXCEPT_MASK);
    }
  }
  return static_cast<int>(dispatching_.size());
}

int WaitReactor::deactivated() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return deactivated_ ? 1 : 0;
}

void WaitReactor::deactivate(int do_stop) {
  const std::lock_guard<std::mutex> lock(mutex_);
  deactivated_ = do_stop != 0;
  bell_->ring();
}

int WaitReactor::notify(ACE_Event_Handler* handler, ACE_Reactor_Mask mask, ACE_Time_Value*) {
  if (handler == nullptr) {
    wakeup_all_threads();
    return 0;
  }
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    const bool known = std::any_of(pending_.begin(), pending_.end(), [&](const Notification& one) {
      return one.handler_ == handler && one.mask_ == mask;
    });
    if (!known) {
      pending_.push_back({handler, mask});
    }
  }
  // Also when it is known: whoever was first may be collecting its rings still.
  ring(bell_);
  return 0;
}

int WaitReactor::purge_pending_notifications(ACE_Event_Handler* handler, ACE_Reactor_Mask) {
  const auto matches = [handler](const Notification& one) {
    return handler == nullptr || one.handler_ == handler;
  };
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto rest = std::remove_if(pending_.begin(), pending_.end(), matches);
  const auto purged = pending_.end() - rest;
  pending_.erase(rest, pending_.end());
  return static_cast<int>(purged);
}

void WaitReactor::wakeup_all_threads() {
  bell_->ring();
}

long WaitReactor::schedule_timer(ACE_Event_Handler* handler, const void* act,
                                 const ACE_Time_Value& delay, const ACE_Time_Value& interval) {
  const ACE_Time_Value due = timers_.gettimeofday() + limitedSpan(delay);
  return timers_.schedule(handler, act, due, interval);
}

int WaitReactor::reset_timer_interval(long timer_id, const ACE_Time_Value& interval) {
  return timers_.reset_interval(timer_id, interval);
}

int WaitReactor::cancel_timer(ACE_Event_Handler* handler, int dont_call_handle_close) {
  return timers_.cancel(handler, dont_call_handle_close);
}

int WaitReactor::cancel_timer(long timer_id, const void** act, int dont_call_handle_close) {
  return timers_.cancel(timer_id, act, dont_call_handle_close);
}

ACE_Timer_Queue* WaitReactor::timer_queue() const {
  return &timers_;
}

int WaitReactor::owner(ACE_thread_t new_owner, ACE_thread_t* old_owner) {
  if (old_owner != nullptr) {
    *old_owner = owner_;
  }
  owner_ = new_owner;
  return 0;
}

int WaitReactor::owner(ACE_thread_t* owner) {
  *owner = owner_;
  return 0;
}

int WaitReactor::open(size_t, bool, ACE_Sig_Handler*, ACE_Timer_Queue*, int, ACE_Reactor_Notify*) {
  return 0;
}

int WaitReactor::close() {
  deactivate(1);
  return 0;
}

bool WaitReactor::initialized() {
  return true;
}

size_t WaitReactor::size() const {
  return 0;
}

ACE_Lock& WaitReactor::lock() {
  return lock_;
}

}  // namespace qov
