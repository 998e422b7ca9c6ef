#ifndef QOV_TASK_DOORBELL_H
#define QOV_TASK_DOORBELL_H

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace qov {

/// Wakes a thread that waits for work. A ring while nobody waits ends the next wait.
///
/// Shared by the waiter and by whoever is about to ring: the waiter may find its work by itself and
/// be gone, queue and all, before the ring comes.
///
/// Thread: any.
class Doorbell {
 public:
  using Clock = std::chrono::steady_clock;

  /// A waiter that sleeps is woken; no system call while it is awake.
  void ring();

  /// Waits for a ring, at most until `deadline`, and takes it. False when none came in time.
  bool wait(const std::optional<Clock::time_point>& deadline);

 private:
  std::mutex mutex_;
  std::condition_variable rung_;
  // Guarded by mutex_.
  bool ringing_ = false;
  int waiting_ = 0;
};

/// Rings `bell`: at once, or with the rest of the batch that the calling thread collects.
void ring(const std::shared_ptr<Doorbell>& bell);

/// Rings what the calling thread has collected. Whoever is about to wait calls it first.
void ringCollected();

/// While one lives, its thread collects its rings instead of being interrupted by each thread that
/// it wakes. They go out when the thread is about to wait, when they are many, and at the end.
class RingCollector {
 public:
  RingCollector();
  ~RingCollector();

  RingCollector(const RingCollector&) = delete;
  RingCollector& operator=(const RingCollector&) = delete;

 private:
  friend void ring(const std::shared_ptr<Doorbell>& bell);
  friend void ringCollected();

  void add(const std::shared_ptr<Doorbell>& bell);
  void ringAll();

  std::vector<std::shared_ptr<Doorbell>> bells_;
  unsigned int rings_ = 0;
};

}  // namespace qov

#endif
