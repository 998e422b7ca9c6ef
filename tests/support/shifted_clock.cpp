#include "tests/support/shifted_clock.h"

#include <dlfcn.h>
#include <pthread.h>
#include <semaphore.h>

#include <atomic>
#include <cerrno>

namespace {

using std::chrono::nanoseconds;

thread_local bool instantWaits = false;
thread_local nanoseconds shift{0};
std::atomic<time_t> standsAt{0};  // 0: it goes on

template <class Function>
Function next(const char* name) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

nanoseconds toDuration(const timespec& time) {
  return std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
}

timespec toTimespec(nanoseconds time) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(time);
  return {seconds.count(), (time - seconds).count()};
}

}  // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec* now) noexcept {
  static const auto real = next<int (*)(clockid_t, timespec*)>("clock_gettime");
  const int result = real(clock, now);
  if (result == 0 && clock == CLOCK_MONOTONIC && shift.count() != 0) {
    *now = toTimespec(toDuration(*now) + shift);
  }
  return result;
}

/// Takes a wait until `until` on `clock` for over.
static int passOver(clockid_t clock, const timespec& until) {
  timespec now;
  clock_gettime(clock, &now);
  shift += toDuration(until) - toDuration(now);
  return ETIMEDOUT;
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                           const timespec* until) {
  using Wait = int (*)(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*);
  static const auto real = next<Wait>("pthread_cond_clockwait");
  return instantWaits ? passOver(clock, *until) : real(condition, mutex, clock, until);
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                           const timespec* until) {
  using Wait = int (*)(pthread_cond_t*, pthread_mutex_t*, const timespec*);
  static const auto real = next<Wait>("pthread_cond_timedwait");
  return instantWaits ? passOver(CLOCK_REALTIME, *until) : real(condition, mutex, until);
}

int sem_clockwait(sem_t* semaphore, clockid_t clock, const timespec* until) {
  using Wait = int (*)(sem_t*, clockid_t, const timespec*);
  static const auto real = next<Wait>("sem_clockwait");
  if (!instantWaits) {
    return real(semaphore, clock, until);
  }
  if (sem_trywait(semaphore) == 0) {
    return 0;
  }
  errno = passOver(clock, *until);
  return -1;
}

time_t time(time_t* result) noexcept {
  static const auto real = next<time_t (*)(time_t*)>("time");
  const time_t now = standsAt != 0 ? standsAt.load() : real(nullptr);
  if (result != nullptr) {
    *result = now;
  }
  return now;
}

}  // extern "C"

namespace qov::test {

InstantWaits::InstantWaits() {
  instantWaits = true;
}

InstantWaits::~InstantWaits() {
  instantWaits = false;
  shift = nanoseconds(0);
}

nanoseconds InstantWaits::waited() const {
  return shift;
}

LongWaits::LongWaits() {
  shift = std::chrono::hours(1);
}

LongWaits::~LongWaits() {
  shift = nanoseconds(0);
}

StandingTimeOfDay::StandingTimeOfDay(time_t seconds) {
  standsAt = seconds;
}

StandingTimeOfDay::~StandingTimeOfDay() {
  standsAt = 0;
}

void StandingTimeOfDay::advance(time_t seconds) {
  standsAt += seconds;
}

}  // namespace qov::test
