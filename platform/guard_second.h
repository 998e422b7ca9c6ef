#ifndef QOV_PLATFORM_GUARD_SECOND_H
#define QOV_PLATFORM_GUARD_SECOND_H

#include <chrono>
#include <cstdlib>

#include "platform/whole_number.h"

namespace qov::platform {

/// The length of a second as the guards count it, those of the stand-in and the library's watch
/// over the shutdown.
///
/// The environment variable "PXOS_GUARD_SECOND_MS" (1 to 1000, milliseconds) shortens it, to try an
/// agent's guards out without waiting for hours.
inline std::chrono::milliseconds guardSecond() {
  const char* const text = std::getenv("PXOS_GUARD_SECOND_MS");
  unsigned milliseconds = 0;
  const bool valid = text != nullptr && parseWholeNumber(text, milliseconds) && milliseconds >= 1 &&
                     milliseconds <= 1000;
  return std::chrono::milliseconds(valid ? milliseconds : 1000);
}

}  // namespace qov::platform

#endif
