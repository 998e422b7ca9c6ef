#include "task/module_counters.h"

#include <algorithm>
#include <ctime>

#include "task/running_managers.h"

namespace qov {

namespace {

std::uint64_t nanosecondsSince(ModuleCounters::Clock::time_point begin) {
  const auto elapsed = ModuleCounters::Clock::now() - begin;
  return static_cast<std::uint64_t>(std::chrono::nanoseconds(elapsed).count());
}

/// How many bits `value` has without leading zeros.
std::size_t widthOf(std::uint64_t value) {
  return value != 0 ? 64U - static_cast<std::size_t>(__builtin_clzll(value)) : 0;
}

QOVModuleStats::Duration toDuration(std::uint64_t nanoseconds) {
  return QOVModuleStats::Duration(nanoseconds);
}

template <std::size_t N>
std::array<std::uint64_t, N> readAll(const std::array<Counter, N>& counters) {
  std::array<std::uint64_t, N> values{};
  for (std::size_t i = 0; i < N; ++i) {
    values[i] = counters[i].read();
  }
  return values;
}

}  // namespace

bool Counter::addUpTo(std::uint64_t most) {
  std::uint64_t value = read();
  while (value < most &&
         !value_.compare_exchange_weak(value, value + 1, std::memory_order_relaxed)) {
  }
  return value < most;
}

void Counter::raiseTo(std::uint64_t value) {
  std::uint64_t highest = read();
  while (value > highest &&
         !value_.compare_exchange_weak(highest, value, std::memory_order_relaxed)) {
  }
}

void ModuleCounters::drop(QOVDropReason reason, const TracedMessage& message) {
  dropped_[static_cast<std::size_t>(reason)].add();
  noteDrop(moduleId_, message, reason);
}

void ModuleCounters::timeOut(const MsgKey& request) {
  timedOut_.add();
  noteTimeOut(moduleId_, TracedMessage(request));
}

std::chrono::nanoseconds ModuleCounters::handled(Clock::time_point begin) {
  const std::uint64_t took = nanosecondsSince(begin);
  handlingSum_.add(took);
  longestHandling_.raiseTo(took);
  handlingTimes_[widthOf(took)].add();
  return toDuration(took);
}

ModuleCounters::Clock::time_point ModuleCounters::coarseNow() {
  // The clock of std::chrono::steady_clock.
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return Clock::time_point(std::chrono::seconds(now.tv_sec) +
                           std::chrono::nanoseconds(now.tv_nsec));
}

void ModuleCounters::pending(std::size_t count, Clock::time_point since) {
  pending_.set(count);
  oldestPendingSince_.set(
      static_cast<std::uint64_t>(std::chrono::nanoseconds(since.time_since_epoch()).count()));
}

QOVModuleStats ModuleCounters::read() const {
  QOVModuleStats stats;
  stats.in_ = in_.read();
  stats.out_ = out_.read();
  stats.refused_ = refused_.read();
  stats.timedOut_ = timedOut_.read();
  stats.dropped_ = readAll(dropped_);
  stats.workers_ = workers_.read();
  stats.busy_ = stats.workers_ - std::min(stats.workers_, idle_.read());
  stats.waiting_ = waitingForWorker_.read();
  stats.pending_ = pending_.read();
  stats.askedLater_ = askedLater_.read();
  if (const std::uint64_t since = oldestPendingSince_.read(); since != 0) {
    stats.oldestPending_ =
        toDuration(nanosecondsSince(Clock::time_point(std::chrono::nanoseconds(since))));
  }
  stats.handlingTimes_ = readAll(handlingTimes_);
  for (const std::uint64_t count : stats.handlingTimes_) {
    stats.handled_ += count;
  }
  stats.handlingSum_ = toDuration(handlingSum_.read());
  stats.longestHandling_ = toDuration(longestHandling_.read());
  return stats;
}

}  // namespace qov

std::vector<QOVModuleStats> getModuleStats() {
  return qov::RunningManagers::stats();
}
