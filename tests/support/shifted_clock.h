#ifndef QOV_TESTS_SUPPORT_SHIFTED_CLOCK_H
#define QOV_TESTS_SUPPORT_SHIFTED_CLOCK_H

#include <chrono>
#include <ctime>

namespace qov::test {

// A program with shifted_clock.cpp has its own clock_gettime(), time(), sem_clockwait(),
// pthread_cond_clockwait() and pthread_cond_timedwait(), which this shifts and shortens.

/// While it lives, waits of the calling thread that have an end are at their end at once, and the
/// thread's steady clock goes on by as much.
class InstantWaits {
 public:
  InstantWaits();
  ~InstantWaits();
  InstantWaits(const InstantWaits&) = delete;
  InstantWaits& operator=(const InstantWaits&) = delete;

  /// How much time the waits have taken on the thread's clock.
  std::chrono::nanoseconds waited() const;
};

/// While it lives, waits of the calling thread that have an end last an hour longer.
class LongWaits {
 public:
  LongWaits();
  ~LongWaits();
  LongWaits(const LongWaits&) = delete;
  LongWaits& operator=(const LongWaits&) = delete;
};

/// While it lives, the process's time of day in seconds stands still.
class StandingTimeOfDay {
 public:
  explicit StandingTimeOfDay(time_t seconds);
  ~StandingTimeOfDay();
  StandingTimeOfDay(const StandingTimeOfDay&) = delete;
  StandingTimeOfDay& operator=(const StandingTimeOfDay&) = delete;

  void advance(time_t seconds);
};

}  // namespace qov::test

#endif
