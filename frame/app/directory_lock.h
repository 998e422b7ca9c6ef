#ifndef QOV_FRAME_APP_DIRECTORY_LOCK_H
#define QOV_FRAME_APP_DIRECTORY_LOCK_H

#include <string>

namespace qov {

/// Locks `directory` itself for this process until it ends; a second call does nothing. The lock
/// keeps nobody out. Processes and programs that modules start do not inherit it.
///
/// Empty when the lock is there or the directory cannot be locked; else who else has it:
/// "process 123", or "another process" where the system does not say.
/// Thread: one at a time. Not before a daemon is split off: a lock goes with its descriptor.
std::string lockDirectory(const std::string& directory);

}  // namespace qov

#endif
