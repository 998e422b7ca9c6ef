#include "platform/guard_time.h"

#include <cstdlib>
#include <ctime>

#include "platform/whole_number.h"

namespace qov::platform {
namespace {

std::chrono::milliseconds lengthOfOneSecond() {
  const char* text = std::getenv("PXOS_GUARD_SECOND_MS");
  unsigned milliseconds = 0;
  if (text != nullptr && parseWholeNumber(text, milliseconds) && milliseconds >= 1 &&
      milliseconds <= 1000) {
    return std::chrono::milliseconds(milliseconds);
  }
  return std::chrono::seconds(1);
}

}  // namespace

std::chrono::nanoseconds guardTime(unsigned seconds) {
  static const std::chrono::milliseconds second = lengthOfOneSecond();
  return second * static_cast<long long>(seconds);
}

std::chrono::nanoseconds guardNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

}  // namespace qov::platform
