#ifndef QOV_TESTS_PLATFORM_GUARD_ENVIRONMENT_H
#define QOV_TESTS_PLATFORM_GUARD_ENVIRONMENT_H

#include <iosfwd>
#include <string>

namespace qov::test {

/// A guard's second lasts one millisecond in this program. One that cannot run out in a test:
constexpr unsigned kLongGuard = 3'600'000;

/// Makes the calling thread's records go where the functions below look for them; the main thread's
/// do from the start.
void logHere();

/// Makes the calling thread's records go to `stream`, which must never be destroyed.
void logTo(std::ostream& stream);

/// Waits until a line of the guards holds `text`; false if none does within a generous time.
bool waitForGuardLine(const std::string& text);

/// How many lines of the guards hold `text` by now.
int countGuardLines(const std::string& text);

/// Waits until a guard opened after this call was logged, so that the watching thread has looked
/// at everything that was open before.
bool letTheWatchLook();

}  // namespace qov::test

#endif
