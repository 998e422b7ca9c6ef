#ifndef QOVPUB_DETAIL_PERIOD_STATE_H
#define QOVPUB_DETAIL_PERIOD_STATE_H

#include <atomic>
#include <chrono>
#include <cstdint>

namespace qov {

/// What a periodic task knows of its ticks. Its own thread's, once that is started, but for the
/// count.
struct PeriodState {
  using Clock = std::chrono::steady_clock;

  std::chrono::nanoseconds period_{};
  std::chrono::nanoseconds first_{};
  Clock::time_point due_{};
  bool running_ = false;

  std::atomic<std::uint64_t> missed_{0};
};

}  // namespace qov

#endif
