#include "task/doorbell.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <ctime>
#include <new>
#include <utility>

#include "task/leader_turn.h"

namespace qov {

namespace {

/// So many threads are kept waiting for the sake of the batch, and no more.
constexpr std::size_t kMostBells = 16;
/// Nor does one wait while so much is put before it: its queue has an end.
constexpr unsigned int kMostRings = 256;

/// A bell that needs no destructor: threads, and the process, may end in any order with theirs.
class CollectedBell {
 public:
  void keep(const std::shared_ptr<Doorbell>& bell) {
    ::new (room_) std::shared_ptr<Doorbell>(bell);
  }
  bool is(const std::shared_ptr<Doorbell>& bell) { return *kept() == bell; }
  std::shared_ptr<Doorbell> take() {
    std::shared_ptr<Doorbell> bell = std::move(*kept());
    kept()->~shared_ptr();
    return bell;
  }

 private:
  std::shared_ptr<Doorbell>* kept() {
    return std::launder(reinterpret_cast<std::shared_ptr<Doorbell>*>(room_));
  }

  alignas(std::shared_ptr<Doorbell>) unsigned char room_[sizeof(std::shared_ptr<Doorbell>)];
};

thread_local bool collecting = false;
thread_local std::size_t bellCount = 0;
thread_local unsigned int ringCount = 0;
/// The first `bellCount` of them are to be rung.
thread_local std::array<CollectedBell, kMostBells> bells;

void collect(const std::shared_ptr<Doorbell>& bell) {
  const auto end = bells.begin() + static_cast<std::ptrdiff_t>(bellCount);
  if (std::none_of(bells.begin(), end, [&](CollectedBell& one) { return one.is(bell); })) {
    bells[bellCount++].keep(bell);
  }
  if (++ringCount == kMostRings || bellCount == kMostBells) {
    ringCollected();
  }
}

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
  beforeWaiting();
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
  if (collecting) {
    collect(bell);
  } else {
    bell->ring();
  }
}

void ringCollected() {
  while (bellCount > 0) {
    bells[--bellCount].take()->ring();
  }
  ringCount = 0;
}

void endCollecting() {
  collecting = false;
  ringCollected();
}

RingCollector::RingCollector() : isInner_(collecting) {
  collecting = true;
}

RingCollector::~RingCollector() {
  if (!isInner_) {
    endCollecting();
  }
}

}  // namespace qov
