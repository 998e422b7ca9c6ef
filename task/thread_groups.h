#ifndef QOV_TASK_THREAD_GROUPS_H
#define QOV_TASK_THREAD_GROUPS_H

#include <cstddef>

namespace qov {

// The thread groups of modules: ACE's groups of the numbers 0 to 255. ACE gives threads that ask
// for no group a number of its own, from 1 upwards; this library's start takes those up to 255 out
// of ACE's hands.

/// How many threads run in `group`, detached ones included; 64 at the most.
std::size_t threadsIn(int group);

/// Waits for the threads of `group` that can be joined, also for those that they start in it
/// meanwhile. Without memory it waits for nobody.
void joinThreadsIn(int group);

}  // namespace qov

#endif
