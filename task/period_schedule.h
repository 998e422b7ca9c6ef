#ifndef QOV_TASK_PERIOD_SCHEDULE_H
#define QOV_TASK_PERIOD_SCHEDULE_H

#include <chrono>
#include <cstdint>

namespace qov {

/// Moves `due`, a time of something that happens every `period` (above 0) and has just happened, on
/// to the next time that has not passed at `now`. Returns how many times it has left out.
inline std::uint64_t moveOn(std::chrono::steady_clock::time_point& due,
                            std::chrono::nanoseconds period,
                            std::chrono::steady_clock::time_point now) {
  due += period;
  if (due >= now) {
    return 0;
  }
  const auto missed = (now - due - std::chrono::nanoseconds(1)) / period + 1;
  due += missed * period;
  return static_cast<std::uint64_t>(missed);
}

}  // namespace qov

#endif
