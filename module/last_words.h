#ifndef QOV_MODULE_LAST_WORDS_H
#define QOV_MODULE_LAST_WORDS_H

#include <string>
#include <vector>

namespace qov {

/// Tells why the process is about to end: on standard error and, as records of level ERR of the
/// public kit, in the log.
///
/// Takes 3 seconds at most, whatever hangs. Only while a thread waits in the dynamic loader, which
/// lets no other one begin, it takes as long as that; the lines are on standard error by then.
///
/// A log that takes nothing, because a thread that hangs holds its lock, is passed by: the records
/// are appended to the process's log file directly, if there is one. The same is done when the
/// process can start no more threads.
///
/// Thread: any but in signal context. Errors: none.
void tellLastWords(unsigned long long logId, const std::vector<std::string>& lines);

/// The threads of the process behind `reason`, a line each.
std::vector<std::string> withThreads(const std::string& reason);

}  // namespace qov

#endif
