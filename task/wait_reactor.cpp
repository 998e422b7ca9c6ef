#include "task/wait_reactor.h"

#include <ace/High_Res_Timer.h>

#include <algorithm>
#include <cerrno>

#include "task/time_span.h"
#include "task/timer_wheel.h"

namespace qov {

namespace {

std::chrono::microseconds toDuration(const ACE_Time_Value& span) {
  return std::chrono::seconds(span.sec()) + std::chrono::microseconds(span.usec());
}

}  // namespace

WaitReactor::WaitReactor(ACE_Event_Handler& handler)
    : handler_(handler), timers_(makeTimerWheel()) {
  // Computed here, once, instead of by whichever threads read the clock first.
  ACE_High_Res_Timer::global_scale_factor();
}

int WaitReactor::handle_events(ACE_Time_Value* max_wait_time) {
  waitsUntil_ = due_;
  wait(max_wait_time);
  return dispatch();
}

void WaitReactor::wait(const ACE_Time_Value* maxWait) {
  // A ring says that something has changed since the last look, so one is taken after the look.
  if (notified_ || deactivated_) {
    return;
  }
  std::optional<Clock::time_point> deadline;
  if (waitsUntil_) {
    deadline = steady(*waitsUntil_);
  }
  if (maxWait != nullptr) {
    const auto end = Clock::now() + toDuration(limitedSpan(*maxWait));
    deadline = deadline ? std::min(*deadline, end) : end;
  }
  bell_->wait(deadline);
}

int WaitReactor::dispatch(bool anyhow) {
  if (deactivated_) {
    errno = ESHUTDOWN;
    return -1;
  }
  // A response that is here in time comes before its own time-out, also when the handler is busy
  // with a batch until after that. A batch is bounded, so the timers get their turn.
  const ACE_Time_Value now = timers_->gettimeofday();
  int called = dispatchNotification(anyhow);
  called += timers_->is_empty() ? 0 : timers_->expire(now);
  std::optional<ACE_Time_Value> earliest;
  if (!timers_->is_empty()) {
    earliest = timers_->earliest_time();
  }
  // What a cancelled timer leaves costs one look at its time, and not one for each timer that comes
  // after it.
  if (!due_ || *due_ <= now || (earliest && *earliest < *due_)) {
    due_ = earliest;
  }
  waitsUntil_ = due_;
  return called;
}

WaitReactor::Clock::time_point WaitReactor::steady(const ACE_Time_Value& time) const {
  return Clock::now() + toDuration(time - timers_->gettimeofday());
}

int WaitReactor::dispatchNotification(bool anyhow) {
  // Before the handler looks: a notification from now on is another one.
  const bool notified = notified_.exchange(false);
  if (!notified && !anyhow) {
    return 0;
  }
  if (handler_.handle_output(ACE_INVALID_HANDLE) == -1) {
    handler_.handle_close(ACE_INVALID_HANDLE, ACE_Event_Handler::EXCEPT_MASK);
  }
  return 1;
}

int WaitReactor::deactivated() {
  return deactivated_ ? 1 : 0;
}

void WaitReactor::deactivate(int do_stop) {
  deactivated_ = do_stop != 0;
  bell_->ring();
}

int WaitReactor::close() {
  deactivate(1);
  return 0;
}

int WaitReactor::notify(ACE_Event_Handler* handler, ACE_Reactor_Mask, ACE_Time_Value*) {
  if (handler != &handler_) {
    return refuse();
  }
  notified_ = true;
  // Also when it was true: whoever was first may be collecting its rings still.
  ring(bell_);
  return 0;
}

long WaitReactor::schedule_timer(ACE_Event_Handler* handler, const void* act,
                                 const ACE_Time_Value& delay, const ACE_Time_Value& interval) {
  const ACE_Time_Value due = timers_->gettimeofday() + limitedSpan(delay);
  const long id = timers_->schedule(handler, act, due, interval);
  if (id != -1 && (!due_ || due < *due_)) {
    due_ = due;
    ring(bell_);
  }
  return id;
}

int WaitReactor::cancel_timer(long timer_id, const void** act, int dont_call_handle_close) {
  return timers_->cancel(timer_id, act, dont_call_handle_close);
}

int WaitReactor::owner(ACE_thread_t, ACE_thread_t*) {
  return 0;
}

}  // namespace qov
