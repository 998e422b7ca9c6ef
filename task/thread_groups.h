#ifndef QOV_TASK_THREAD_GROUPS_H
#define QOV_TASK_THREAD_GROUPS_H

#include <cstddef>

namespace qov {

// The thread groups of modules: ACE's groups of the numbers 0 to 255. ACE gives threads that ask
// for no group a number of its own, from 1 upwards; this library's start takes those up to 255 out
// of ACE's hands.

/// How many plain threads run in `group`: those that ACE's thread manager started for no task.
std::size_t plainThreadsIn(int group);

/// Waits for the plain threads of `group` that can be joined, also for those that they start in it
/// meanwhile. Threads of tasks are left alone. Without memory it waits for nobody.
void joinPlainThreads(int group);

}  // namespace qov

#endif
