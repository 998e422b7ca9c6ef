#ifndef QOV_TESTKIT_THREAD_OF_H
#define QOV_TESTKIT_THREAD_OF_H

#include <ace/Log_Msg.h>
#include <ace/Thread.h>
#include <ace/Thread_Manager.h>

namespace qov {

/// While one lives, the calling thread is one of `task` for ACE, and so for getCurrentTask().
class ThreadOf : public ACE_Thread_Descriptor {
 public:
  explicit ThreadOf(ACE_Task_Base& task) : before_(ACE_Log_Msg::instance()->thr_desc()) {
    task_ = &task;
    thr_id_ = ACE_Thread::self();
    thr_state_ = ACE_Thread_Manager::ACE_THR_SPAWNED;
    ACE_Log_Msg::instance()->thr_desc(this);
  }
  ~ThreadOf() override { ACE_Log_Msg::instance()->thr_desc(before_); }

  ThreadOf(const ThreadOf&) = delete;
  ThreadOf& operator=(const ThreadOf&) = delete;

 private:
  ACE_Thread_Descriptor* const before_;
};

}  // namespace qov

#endif
