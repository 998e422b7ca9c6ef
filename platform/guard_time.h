#ifndef QOV_PLATFORM_GUARD_TIME_H
#define QOV_PLATFORM_GUARD_TIME_H

#include <chrono>

namespace qov::platform {

/// The length of `seconds` seconds as the guards count them (guardSecond(), read at first use).
std::chrono::nanoseconds guardTime(unsigned seconds);

/// The time as the guards read it: the steady clock's, up to a few milliseconds old. Guards count
/// whole seconds, and reading the exact time twice per message costs more than all the rest.
std::chrono::nanoseconds guardNow();

}  // namespace qov::platform

#endif
