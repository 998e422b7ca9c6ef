#ifndef QOV_MODULE_THREAD_STATES_H
#define QOV_MODULE_THREAD_STATES_H

#include <string>
#include <vector>

namespace qov {

/// What the threads of this process are at, as the system knows it, a line each:
///
///     thread 4242 (m20-worker-3): sleeping, in futex_wait_queue, system call futex(0x7f..)
///
/// State, the kernel's function it waits in, and the system call with its first argument, for files
/// the descriptor. What the system does not tell is left out.
///
/// Thread: any. Errors: none; a thread that ends meanwhile is left out.
std::vector<std::string> threadStates();

}  // namespace qov

#endif
