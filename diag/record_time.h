#ifndef QOV_DIAG_RECORD_TIME_H
#define QOV_DIAG_RECORD_TIME_H

#include <ctime>
#include <string>

namespace qov {

/// `second` in local time, as UtcTimeToLocalTimeStr() has it with "/".
///
/// The C library has a lock for that, which another thread may hold when this one forks. It stays
/// locked in the child for good, so a child of several threads goes without: it keeps the offset
/// from UTC that its parent had.
/// Thread: any.
std::string recordTime(time_t second);

/// How far that is from UTC, as ISO 8601 has it: "+01:00".
std::string recordOffset(time_t second);

/// Before a fork: notes the offset of now. One thread at a time.
void noteUtcOffset();
/// In the child: keeps what was noted, as do the child's own children.
void keepUtcOffset();

}  // namespace qov

#endif
