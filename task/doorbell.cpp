#include "task/doorbell.h"

#include <algorithm>
#include <cerrno>
#include <ctime>

namespace qov {

namespace {

thread_local RingCollector* collector = nullptr;

timespec toTimespec(Doorbell::Clock::time_point time) {
  const std::chrono::nanoseconds since = time.time_since_epoch();
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(since);
  return {seconds.count(), (since - seconds).count()};
}

}  // namespace

Doorbell::Doorbell() {
  ::sem_init(&signal_, 0, 0);
}

Doorbell::~Doorbell() {
  ::sem_destroy(&signal_);
}

void Doorbell::ring() {
  if (!rung_.exchange(true)) {
    ::sem_post(&signal_);
  }
}

bool Doorbell::wait(const std::optional<Clock::time_point>& deadline) {
  ringCollected();
  const timespec until = deadline ? toTimespec(*deadline) : timespec{};
  const auto waitOnce = [&] {
    return deadline ? ::sem_clockwait(&signal_, CLOCK_MONOTONIC, &until) : ::sem_wait(&signal_);
  };
  while (waitOnce() != 0) {
    if (errno != EINTR) {
      return false;
    }
  }
  // Before the waiter looks: a ring from now on posts anew.
  rung_.exchange(false);
  return true;
}

void ring(const std::shared_ptr<Doorbell>& bell) {
  if (collector != nullptr) {
    collector->add(bell);
  } else {
    bell->ring();
  }
}

void ringCollected() {
  if (collector != nullptr) {
    collector->ringAll();
  }
}

void endCollecting() {
  ringCollected();
  collector = nullptr;
}

RingCollector::RingCollector() : isInner_(collector != nullptr) {
  if (!isInner_) {
    collector = this;
  }
}

RingCollector::~RingCollector() {
  if (!isInner_) {
    collector = nullptr;
    ringAll();
  }
}

void RingCollector::add(const std::shared_ptr<Doorbell>& bell) {
  const auto end = bells_.begin() + static_cast<std::ptrdiff_t>(count_);
  if (std::find(bells_.begin(), end, bell) == end) {
    bells_[count_++] = bell;
  }
  if (++rings_ == kMostRings || count_ == kMostBells) {
    ringAll();
  }
}

void RingCollector::ringAll() {
  for (; count_ > 0; --count_) {
    std::shared_ptr<Doorbell>& bell = bells_[count_ - 1];
    bell->ring();
    bell.reset();
  }
  rings_ = 0;
}

}  // namespace qov
