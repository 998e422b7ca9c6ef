#include "task/thread_tasks.h"

#include <ace/Guard_T.h>

#include <iterator>

namespace qov {

ThreadTasks& ThreadTasks::instance() {
  static ThreadTasks* const all = new ThreadTasks;
  return *all;
}

void ThreadTasks::bindStarted(ACE_thread_t thread, CQOV_Task* task) {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  if (endedEarly_.erase({thread, task}) == 0) {
    tasks_.rebind(thread, task);
  }
}

void ThreadTasks::bind(ACE_thread_t thread, CQOV_Task* task) {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  tasks_.rebind(thread, task);
}

void ThreadTasks::unbind(ACE_thread_t thread, const CQOV_Task* task) {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  CQOV_Task* bound = nullptr;
  if (tasks_.find(thread, bound) == 0 && bound == task) {
    tasks_.unbind(thread);
    return;
  }
  endedEarly_.emplace(thread, task);
}

void ThreadTasks::unbindAll(const CQOV_Task* task) {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  for (auto next = tasks_.begin(); next != tasks_.end();) {
    Map::ENTRY& entry = *next;
    ++next;
    if (entry.item() == task) {
      tasks_.unbind(&entry);
    }
  }
  for (auto ended = endedEarly_.begin(); ended != endedEarly_.end();) {
    ended = ended->second == task ? endedEarly_.erase(ended) : std::next(ended);
  }
}

CQOV_Task* ThreadTasks::find(ACE_thread_t thread) {
  ACE_Guard<ACE_Thread_Mutex> guard(lock_);
  CQOV_Task* task = nullptr;
  return tasks_.find(thread, task) == 0 ? task : nullptr;
}

}  // namespace qov
