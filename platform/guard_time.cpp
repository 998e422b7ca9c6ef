#include "platform/guard_time.h"

#include <ctime>

#include "platform/guard_second.h"

namespace qov::platform {
std::chrono::nanoseconds guardTime(unsigned seconds) {
  static const std::chrono::milliseconds second = guardSecond();
  return second * static_cast<long long>(seconds);
}

std::chrono::nanoseconds guardNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

}  // namespace qov::platform
