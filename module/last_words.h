#ifndef QOV_MODULE_LAST_WORDS_H
#define QOV_MODULE_LAST_WORDS_H

#include <string>
#include <vector>

namespace qov {

/// Tells why the process is about to end: on standard error and, as records of level ERR of the
/// public kit, in the log.
///
/// The records are appended to the file `<root>/log/<name>.log`, wherever records go otherwise, and
/// past the log, whose lock a thread that hangs may hold. Where there is no such file the log gets
/// them, and this may hang there: to be called where something else ends the process after a few
/// seconds. No thread is started, which would wait for one that waits in the dynamic loader.
///
/// Thread: any but in signal context. Errors: throws std::bad_alloc.
void tellLastWords(unsigned long long logId, const std::vector<std::string>& lines);

/// Whether they have been told. Async-signal-safe.
bool lastWordsAreTold();

/// Writes the lines on standard error, past its lock. What takes nothing for half a second, such as
/// a pipe that nobody reads, loses the rest.
void tellOnStandardError(const std::vector<std::string>& lines);

/// The threads of the process behind `reason`, a line each.
std::vector<std::string> withThreads(const std::string& reason);

}  // namespace qov

#endif
