#include "link/deadline.h"

#include <algorithm>
#include <climits>
#include <ctime>

namespace qov {
namespace {

constexpr std::chrono::seconds kLongest{10L * 365 * 24 * 3600};

std::chrono::microseconds durationOf(const ACE_Time_Value& timeout) {
  if (timeout < ACE_Time_Value::zero) {
    return std::chrono::microseconds{0};
  }
  const std::chrono::seconds seconds{timeout.sec()};
  return seconds < kLongest ? seconds + std::chrono::microseconds{timeout.usec()} : kLongest;
}

}  // namespace

Deadline::Clock::time_point Deadline::Clock::now() {
  timespec time{};
  ::clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
  return time_point(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

Deadline::Deadline(const ACE_Time_Value* timeout) : never_(timeout == nullptr) {
  if (!never_) {
    end_ = Clock::now() + durationOf(*timeout);
  }
}

Deadline Deadline::share(std::size_t count) const {
  Deadline part(*this);
  if (!never_) {
    const auto now = Clock::now();
    part.end_ = now + (end_ - now) / static_cast<Clock::rep>(count);
  }
  return part;
}

int Deadline::pollTimeout() const {
  if (never_) {
    return -1;
  }
  // Up to a whole millisecond more: a poll that ends early would be followed by others of length 0.
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now()).count();
  return static_cast<int>(std::clamp<decltype(left)>(left, 0, INT_MAX));
}

}  // namespace qov
