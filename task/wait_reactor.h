#ifndef QOV_TASK_WAIT_REACTOR_H
#define QOV_TASK_WAIT_REACTOR_H

#include <ace/Event_Handler.h>
#include <ace/Time_Value.h>
#include <ace/Timer_Queue_T.h>

#include <atomic>
#include <memory>
#include <optional>

#include "task/doorbell.h"
#include "task/refusing_reactor.h"

namespace qov {

/// A reactor of one handler: notifications and timers only, without descriptors.
///
/// ACE's own reactors cost a private reactor per module a pipe, two system calls per notification,
/// and reset SIGINT, SIGUSR1 and SIGPIPE for the whole process when they are destroyed. This one
/// waits on a doorbell. A notification to an owner that is awake is a flag, and notifications that
/// were not dispatched yet are one.
///
/// Thread: notify(), deactivate() and deactivated() from any thread; timers from one thread at a
///         time; all else on one thread.
/// Owns:   its timer wheel. The handler is borrowed.
/// Errors: whatever else a reactor can do answers -1 with errno ENOTSUP. The constructor throws
///         std::bad_alloc.
class WaitReactor : public RefusingReactor {
 public:
  /// `handler` is the only one that can be notified.
  explicit WaitReactor(ACE_Event_Handler& handler);

  /// Waits for a notification, a timer, deactivate(), or the end of `max_wait_time`; then
  /// dispatches the notification and fires the timers that are due. Returns how many calls that
  /// took, or -1 (errno ESHUTDOWN) once deactivated.
  int handle_events(ACE_Time_Value* max_wait_time = nullptr) override;

  /// The two halves of handle_events(). During the first, other threads may use the timers, one at
  /// a time; a timer that one of them makes the earliest ends the wait. The second dispatches as if
  /// notified if `anyhow`.
  void wait(const ACE_Time_Value* maxWait = nullptr);
  int dispatch(bool anyhow = false);

  /// What wait() waits for.
  const std::shared_ptr<Doorbell>& bell() const { return bell_; }

  int deactivated() override;
  void deactivate(int do_stop) override;
  int close() override;

  /// Makes handle_events() call the handler's handle_output() once, whatever the mask; -1 from it
  /// leads to its handle_close().
  int notify(ACE_Event_Handler* handler, ACE_Reactor_Mask mask, ACE_Time_Value* timeout) override;

  /// `delay` counts from now; more than 200 years are taken as 200 years.
  long schedule_timer(ACE_Event_Handler* handler, const void* act, const ACE_Time_Value& delay,
                      const ACE_Time_Value& interval) override;
  int cancel_timer(long timer_id, const void** act, int dont_call_handle_close) override;

  /// Succeeds without effect: whoever handles the events is the owner.
  int owner(ACE_thread_t new_owner, ACE_thread_t* old_owner) override;

 private:
  using Clock = Doorbell::Clock;

  /// When `time` of the timers' clock comes.
  Clock::time_point steady(const ACE_Time_Value& time) const;
  int dispatchNotification(bool anyhow);

  ACE_Event_Handler& handler_;
  // One thread at a time.
  const std::unique_ptr<ACE_Timer_Queue> timers_;
  /// Not later than the earliest timer is due, by the timers' clock.
  std::optional<ACE_Time_Value> due_;
  // The waiting thread only: due_ when it last looked.
  std::optional<ACE_Time_Value> waitsUntil_;

  const std::shared_ptr<Doorbell> bell_ = std::make_shared<Doorbell>();
  std::atomic<bool> notified_{false};
  std::atomic<bool> deactivated_{false};
};

}  // namespace qov

#endif
