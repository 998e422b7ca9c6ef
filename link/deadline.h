#ifndef QOV_LINK_DEADLINE_H
#define QOV_LINK_DEADLINE_H

#include <ace/Time_Value.h>

#include <chrono>
#include <cstddef>

namespace qov {

/// When several waits have to be over together, by a clock that nobody sets. It goes by the tick of
/// the system's timers, so a deadline may come a few milliseconds early or late.
///
/// Thread: a value.
/// Owns:   nothing.
/// Errors: none. A time-out below zero is none; one too long to reckon with ends in ten years.
class Deadline {
 public:
  /// `timeout` from now; null: never.
  explicit Deadline(const ACE_Time_Value* timeout);

  /// A deadline for the first of `count` (1 or more) equal parts of what is left.
  Deadline share(std::size_t count) const;

  /// What is left, for poll(): -1 for ever, 0 when it is over, at most what an int can say.
  int pollTimeout() const;

 private:
  /// Read for every receive, mostly for nothing: it costs a fifth of the exact clock, and never a
  /// system call.
  struct Clock {
    using duration = std::chrono::nanoseconds;
    using rep = duration::rep;
    using time_point = std::chrono::time_point<Clock, duration>;

    static time_point now();
  };

  bool never_;
  Clock::time_point end_;
};

}  // namespace qov

#endif
