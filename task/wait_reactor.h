#ifndef QOV_TASK_WAIT_REACTOR_H
#define QOV_TASK_WAIT_REACTOR_H

#include <ace/Event_Handler.h>
#include <ace/Event_Handler_Handle_Timeout_Upcall.h>
#include <ace/Free_List.h>
#include <ace/Lock_Adapter_T.h>
#include <ace/Null_Mutex.h>
#include <ace/Reactor_Impl.h>
#include <ace/Time_Policy.h>
#include <ace/Timer_Wheel_T.h>

#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "task/doorbell.h"

namespace qov {

/// A reactor of notifications and timers only, without descriptors.
///
/// ACE's own reactors cost a private reactor per module a pipe, two system calls per notification,
/// and reset SIGINT, SIGUSR1 and SIGPIPE for the whole process when they are destroyed. This one
/// waits on a doorbell: a notification to an owner that is awake is a flag, and
/// notifications of one handler that were not dispatched yet are one.
///
/// Thread: notify(), deactivate() and deactivated() from any thread; all else on the owner's
///         thread.
/// Owns:   its timer wheel (1024 spokes, 100 ms, high-resolution clock). Handlers are borrowed.
/// Errors: whatever needs a descriptor or a signal answers -1 with errno ENOTSUP.
class WaitReactor : public ACE_Reactor_Impl {
 public:
  WaitReactor();
  ~WaitReactor() override;

  /// Waits for a notification, a timer, deactivate(), or the end of `max_wait_time`; then
  /// dispatches each notification and fires the timers that are due. Returns how many handlers were
  /// called, or -1 (errno ESHUTDOWN) once deactivated.
  int handle_events(ACE_Time_Value* max_wait_time = nullptr) override;
  int handle_events(ACE_Time_Value& max_wait_time) override;
  int alertable_handle_events(ACE_Time_Value* max_wait_time = nullptr) override;
  int alertable_handle_events(ACE_Time_Value& max_wait_time) override;
  int work_pending(const ACE_Time_Value& max_wait_time = ACE_Time_Value::zero) override;

  int deactivated() override;
  void deactivate(int do_stop) override;

  /// Makes handle_events() call the handler's handle_output() (WRITE_MASK), handle_input()
  /// (READ_MASK) or handle_exception() once; -1 from it leads to its handle_close().
  int notify(ACE_Event_Handler* handler = nullptr,
             ACE_Reactor_Mask mask = ACE_Event_Handler::EXCEPT_MASK,
             ACE_Time_Value* timeout = nullptr) override;
  int purge_pending_notifications(ACE_Event_Handler* handler = nullptr,
                                  ACE_Reactor_Mask = ACE_Event_Handler::ALL_EVENTS_MASK) override;
  void wakeup_all_threads() override;

  /// `delay` counts from now; more than 200 years are taken as 200 years.
  long schedule_timer(ACE_Event_Handler* handler, const void* act, const ACE_Time_Value& delay,
                      const ACE_Time_Value& interval = ACE_Time_Value::zero) override;
  int reset_timer_interval(long timer_id, const ACE_Time_Value& interval) override;
  int cancel_timer(ACE_Event_Handler* handler, int dont_call_handle_close = 1) override;
  int cancel_timer(long timer_id, const void** act = nullptr,
                   int dont_call_handle_close = 1) override;
  int timer_queue(ACE_Timer_Queue* queue) override;
  ACE_Timer_Queue* timer_queue() const override;

  int owner(ACE_thread_t new_owner, ACE_thread_t* old_owner = nullptr) override;
  int owner(ACE_thread_t* owner) override;

  int open(size_t size, bool restart = false, ACE_Sig_Handler* = nullptr,
           ACE_Timer_Queue* = nullptr, int disable_notify_pipe = 0,
           ACE_Reactor_Notify* = nullptr) override;
  int close() override;
  bool initialized() override;
  size_t size() const override;
  ACE_Lock& lock() override;
  void dump() const override;

  // What follows needs descriptors or signals, or tunes what this reactor does not have.
  int current_info(ACE_HANDLE, size_t&) override;
  int set_sig_handler(ACE_Sig_Handler*) override;
  int register_handler(ACE_Event_Handler*, ACE_Reactor_Mask) override;
  int register_handler(ACE_HANDLE, ACE_Event_Handler*, ACE_Reactor_Mask) override;
  int register_handler(ACE_HANDLE, ACE_HANDLE, ACE_Event_Handler*, ACE_Reactor_Mask) override;
  int register_handler(const ACE_Handle_Set&, ACE_Event_Handler*, ACE_Reactor_Mask) override;
  int register_handler(int, ACE_Event_Handler*, ACE_Sig_Action* = nullptr,
                       ACE_Event_Handler** = nullptr, ACE_Sig_Action* = nullptr) override;
  int register_handler(const ACE_Sig_Set&, ACE_Event_Handler*, ACE_Sig_Action* = nullptr) override;
  int remove_handler(ACE_Event_Handler*, ACE_Reactor_Mask) override;
  int remove_handler(ACE_HANDLE, ACE_Reactor_Mask) override;
  int remove_handler(const ACE_Handle_Set&, ACE_Reactor_Mask) override;
  int remove_handler(int, ACE_Sig_Action*, ACE_Sig_Action* = nullptr, int = -1) override;
  int remove_handler(const ACE_Sig_Set&) override;
  int suspend_handler(ACE_Event_Handler*) override;
  int suspend_handler(ACE_HANDLE) override;
  int suspend_handler(const ACE_Handle_Set&) override;
  int suspend_handlers() override;
  int resume_handler(ACE_Event_Handler*) override;
  int resume_handler(ACE_HANDLE) override;
  int resume_handler(const ACE_Handle_Set&) override;
  int resume_handlers() override;
  int resumable_handler() override;
  bool uses_event_associations() override;
  int schedule_wakeup(ACE_Event_Handler*, ACE_Reactor_Mask) override;
  int schedule_wakeup(ACE_HANDLE, ACE_Reactor_Mask) override;
  int cancel_wakeup(ACE_Event_Handler*, ACE_Reactor_Mask) override;
  int cancel_wakeup(ACE_HANDLE, ACE_Reactor_Mask) override;
  void max_notify_iterations(int) override;
  int max_notify_iterations() override;
  ACE_Event_Handler* find_handler(ACE_HANDLE) override;
  int handler(ACE_HANDLE, ACE_Reactor_Mask, ACE_Event_Handler** = nullptr) override;
  int handler(int, ACE_Event_Handler** = nullptr) override;
  bool restart() override;
  bool restart(bool) override;
  void requeue_position(int) override;
  int requeue_position() override;
  int mask_ops(ACE_Event_Handler*, ACE_Reactor_Mask, int) override;
  int mask_ops(ACE_HANDLE, ACE_Reactor_Mask, int) override;
  int ready_ops(ACE_Event_Handler*, ACE_Reactor_Mask, int) override;
  int ready_ops(ACE_HANDLE, ACE_Reactor_Mask, int) override;

 private:
  using TimerCall = ACE_Event_Handler_Handle_Timeout_Upcall;
  using TimerWheel =
      ACE_Timer_Wheel_T<ACE_Event_Handler*, TimerCall, ACE_Null_Mutex, ACE_HR_Time_Policy>;
  using TimerNodes = ACE_Locked_Free_List<ACE_Timer_Node_T<ACE_Event_Handler*>, ACE_Null_Mutex>;

  struct Notification {
    ACE_Event_Handler* handler_;
    ACE_Reactor_Mask mask_;
  };

  /// A whole wheel, or std::bad_alloc: ACE makes one that lacks what there is no memory for, and
  /// crashes when it needs it, in part within the wheel's constructor. What that needs is given.
  std::unique_ptr<TimerWheel> makeWheel();
  bool hasWork() const;
  std::optional<Doorbell::Clock::time_point> deadlineOf(const ACE_Time_Value* maxWait) const;
  void waitForWork(const ACE_Time_Value* maxWait);
  int dispatchNotifications();

  // Owner's thread only. The wheel uses the call and the nodes to its end.
  TimerCall timerCall_;
  TimerNodes timerNodes_;
  const std::unique_ptr<TimerWheel> wheel_;
  TimerWheel& timers_;
  std::vector<Notification> dispatching_;
  ACE_thread_t owner_;

  const std::shared_ptr<Doorbell> bell_ = std::make_shared<Doorbell>();

  mutable std::mutex mutex_;
  // Guarded by mutex_.
  std::vector<Notification> pending_;
  bool deactivated_ = false;

  // Given to the adapter, which goes on without one that it cannot make.
  ACE_Null_Mutex nullMutex_;
  ACE_Lock_Adapter<ACE_Null_Mutex> lock_{nullMutex_};
};

}  // namespace qov

#endif
