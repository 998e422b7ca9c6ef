#ifndef QOV_PLATFORM_OVERDUE_WATCH_H
#define QOV_PLATFORM_OVERDUE_WATCH_H

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "platform/guard_slots.h"

namespace qov::platform {

/// Looks through the open guards from a thread of its own and logs those that are overdue.
///
/// Every guard may take at least the shortest time that was ever asked for, so a guard that opens
/// after one look cannot be overdue before that time has passed: the thread sleeps until then, or
/// until the first deadline it has seen, and guards need not wake it.
class OverdueWatch {
 public:
  /// The one of the process; never destroyed, so that guards may outlive the static objects.
  static OverdueWatch& instance();

  /// Makes sure that a guard of `limit` nanoseconds, open by now, is seen in time.
  void cover(std::int64_t limit) {
    if (limit < shortest_.load(std::memory_order_relaxed)) {
      lowerShortest(limit);
    }
  }

  /// Ends the thread for good; called when the process exits. A thread that is stuck in the log is
  /// left behind after a few seconds.
  void stop();

 private:
  OverdueWatch();

  void lowerShortest(std::int64_t limit);
  void startThread();
  void run();
  /// Logs what is overdue and returns when to look again.
  std::chrono::steady_clock::time_point look();
  /// Waits until the thread neither looks nor logs; false when that takes too long.
  bool waitForTheLook(std::unique_lock<std::mutex>& held);
  void holdForFork();
  void forgetThreadAfterFork();

  std::atomic<std::int64_t> shortest_;

  std::mutex lock_;
  std::condition_variable changed_;       // what the thread waits for
  std::condition_variable lookedAround_;  // what waits for the thread
  // Guarded by lock_.
  bool stopping_ = false;
  bool shorter_ = false;
  bool looking_ = false;
  bool running_ = false;
  pthread_t thread_{};
};

/// Writes the line of a handling that still goes on in thread `threadId`, to that thread's log.
void logStillOpen(const GuardSlot::Handling& overdue, int threadId);
/// Writes the line of a handling of the calling thread that has ended late.
void logClosedLate(const GuardSlot::Handling& overdue);

}  // namespace qov::platform

#endif
