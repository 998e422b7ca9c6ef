#ifndef QOV_TASK_REFUSING_REACTOR_H
#define QOV_TASK_REFUSING_REACTOR_H

#include <ace/Event_Handler.h>
#include <ace/Lock_Adapter_T.h>
#include <ace/Null_Mutex.h>
#include <ace/Reactor_Impl.h>
#include <ace/Time_Value.h>

#include <cerrno>

namespace qov {

/// Answers every operation of a reactor with errno ENOTSUP and -1, null or false: the base of a
/// reactor that has a few of them.
class RefusingReactor : public ACE_Reactor_Impl {
 protected:
  using Handler = ACE_Event_Handler;
  using Mask = ACE_Reactor_Mask;
  using Time = ACE_Time_Value;

 public:
  int open(size_t, bool, ACE_Sig_Handler*, ACE_Timer_Queue*, int, ACE_Reactor_Notify*) override {
    return refuse();
  }
  int close() override { return refuse(); }
  int current_info(ACE_HANDLE, size_t&) override { return refuse(); }
  bool initialized() override { return refuse() == 0; }
  size_t size() const override { return 0; }
  ACE_Lock& lock() override { return lock_; }
  void dump() const override {}
  bool restart() override { return refuse() == 0; }
  bool restart(bool) override { return refuse() == 0; }

  int handle_events(Time*) override { return refuse(); }
  int handle_events(Time&) override { return refuse(); }
  int alertable_handle_events(Time*) override { return refuse(); }
  int alertable_handle_events(Time&) override { return refuse(); }
  int work_pending(const Time&) override { return refuse(); }
  int deactivated() override { return refuse(); }
  void deactivate(int) override { refuse(); }
  void wakeup_all_threads() override { refuse(); }
  int owner(ACE_thread_t, ACE_thread_t*) override { return refuse(); }
  int owner(ACE_thread_t*) override { return refuse(); }

  int notify(Handler*, Mask, Time*) override { return refuse(); }
  int purge_pending_notifications(Handler*, Mask) override { return refuse(); }
  void max_notify_iterations(int) override { refuse(); }
  int max_notify_iterations() override { return refuse(); }
  void requeue_position(int) override { refuse(); }
  int requeue_position() override { return refuse(); }

  int timer_queue(ACE_Timer_Queue*) override { return refuse(); }
  ACE_Timer_Queue* timer_queue() const override { return nullptr; }
  long schedule_timer(Handler*, const void*, const Time&, const Time&) override { return refuse(); }
  int reset_timer_interval(long, const Time&) override { return refuse(); }
  int cancel_timer(Handler*, int) override { return refuse(); }
  int cancel_timer(long, const void**, int) override { return refuse(); }

  int set_sig_handler(ACE_Sig_Handler*) override { return refuse(); }
  int register_handler(Handler*, Mask) override { return refuse(); }
  int register_handler(ACE_HANDLE, Handler*, Mask) override { return refuse(); }
  int register_handler(ACE_HANDLE, ACE_HANDLE, Handler*, Mask) override { return refuse(); }
  int register_handler(const ACE_Handle_Set&, Handler*, Mask) override { return refuse(); }
  int register_handler(int, Handler*, ACE_Sig_Action*, Handler**, ACE_Sig_Action*) override {
    return refuse();
  }
  int register_handler(const ACE_Sig_Set&, Handler*, ACE_Sig_Action*) override { return refuse(); }
  int remove_handler(Handler*, Mask) override { return refuse(); }
  int remove_handler(ACE_HANDLE, Mask) override { return refuse(); }
  int remove_handler(const ACE_Handle_Set&, Mask) override { return refuse(); }
  int remove_handler(int, ACE_Sig_Action*, ACE_Sig_Action*, int) override { return refuse(); }
  int remove_handler(const ACE_Sig_Set&) override { return refuse(); }
  int suspend_handler(Handler*) override { return refuse(); }
  int suspend_handler(ACE_HANDLE) override { return refuse(); }
  int suspend_handler(const ACE_Handle_Set&) override { return refuse(); }
  int suspend_handlers() override { return refuse(); }
  int resume_handler(Handler*) override { return refuse(); }
  int resume_handler(ACE_HANDLE) override { return refuse(); }
  int resume_handler(const ACE_Handle_Set&) override { return refuse(); }
  int resume_handlers() override { return refuse(); }
  int resumable_handler() override { return refuse(); }
  bool uses_event_associations() override { return refuse() == 0; }
  int schedule_wakeup(Handler*, Mask) override { return refuse(); }
  int schedule_wakeup(ACE_HANDLE, Mask) override { return refuse(); }
  int cancel_wakeup(Handler*, Mask) override { return refuse(); }
  int cancel_wakeup(ACE_HANDLE, Mask) override { return refuse(); }
  Handler* find_handler(ACE_HANDLE) override { return refuse(), nullptr; }
  int handler(ACE_HANDLE, Mask, Handler**) override { return refuse(); }
  int handler(int, Handler**) override { return refuse(); }
  int mask_ops(Handler*, Mask, int) override { return refuse(); }
  int mask_ops(ACE_HANDLE, Mask, int) override { return refuse(); }
  int ready_ops(Handler*, Mask, int) override { return refuse(); }
  int ready_ops(ACE_HANDLE, Mask, int) override { return refuse(); }

 protected:
  static int refuse() {
    errno = ENOTSUP;
    return -1;
  }

 private:
  // Given to the adapter, which goes on without one that it cannot make.
  ACE_Null_Mutex nullMutex_;
  ACE_Lock_Adapter<ACE_Null_Mutex> lock_{nullMutex_};
};

}  // namespace qov

#endif
