#include "task/start_task.h"

namespace qov {

int startTask(CQOV_Task& task, int gid, const ThreadName& name, ACE_thread_t& thread) {
  std::size_t stackBytes = kThreadStackBytes;
  const char* text = name.text();
  return task.activate(THR_NEW_LWP | THR_JOINABLE | THR_INHERIT_SCHED, 1, 0,
                       ACE_DEFAULT_THREAD_PRIORITY, gid, nullptr, nullptr, nullptr, &stackBytes,
                       &thread, &text) == 0
             ? 0
             : -1;
}

}  // namespace qov
