#ifndef QOV_TASK_THREAD_GROUPS_H
#define QOV_TASK_THREAD_GROUPS_H

#include <cstddef>

class CQOV_Task;

namespace qov {

// The threads of modules, as ACE's thread manager keeps them.
//
// Their thread groups are ACE's groups of the numbers 0 to 255. ACE gives threads that ask
// for no group a number of its own, from 1 upwards; this library's start takes those up to 255 out
// of ACE's hands.

/// Whether the calling thread runs in the group of a module.
bool runsInModuleGroup();

/// How many threads run in `group`, detached ones included; 64 at the most.
std::size_t threadsIn(int group);

/// Waits for the threads of `group` that can be joined, also for those that they start in it
/// meanwhile.
void joinThreadsIn(int group);

/// Calls notifyExit() of `task`, whose threads are going to be joined. Ends the process where there
/// is no memory for that: they would be waited for without end.
void tellToEnd(CQOV_Task& task);
/// What CQOV_Task::notifyExit() notes of the calling thread then.
void noteUntold();

/// Waits for the threads of `task`.
void joinThreadsOf(CQOV_Task& task);

}  // namespace qov

#endif
