#ifndef QOV_TASK_DOORBELL_H
#define QOV_TASK_DOORBELL_H

#include <semaphore.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>

namespace qov {

/// Wakes a thread that waits for work. A ring while nobody waits ends the next wait.
///
/// A ring is no system call while the waiter is awake or has been rung for already, and one when it
/// sleeps.
///
/// No wake-up is lost. Who has work leaves it where the waiter looks and then rings; the waiter
/// takes a ring and then looks. A ring that finds the bell rung posts nothing: the ring before it
/// is not taken yet, and when it is, the waiter sees what was left before either.
///
/// Thread: any. Several may wait; a ring ends the wait of one of them. A thread may be cancelled
///         while it waits; the bell stays usable.
class Doorbell {
 public:
  using Clock = std::chrono::steady_clock;

  Doorbell();
  ~Doorbell();

  Doorbell(const Doorbell&) = delete;
  Doorbell& operator=(const Doorbell&) = delete;

  void ring();

  /// Waits for a ring, at most until `deadline`, and takes it. False when none came in time. Goes
  /// through beforeWaiting() first.
  bool wait(const std::optional<Clock::time_point>& deadline = std::nullopt);

 private:
  /// From a ring until it is taken. The semaphore is posted once meanwhile.
  std::atomic<bool> rung_{false};
  /// A thread that waits for it can be cancelled, as none can that waits for a bare futex.
  sem_t signal_;
};

/// Rings `bell`: at once, or with the rest of the batch that the calling thread collects, which
/// keeps the bell. The waiter may find its work by itself and be gone, queue and all, before the
/// ring comes.
void ring(const std::shared_ptr<Doorbell>& bell);

/// Rings what the calling thread has collected.
void ringCollected();

/// The same, and the calling thread rings at once from now on, until its next collector outside of
/// those that live: for who is about to call what may wait for a thread that it wakes.
void endCollecting();

/// While one lives, its thread collects its rings. They go out before the thread waits for a bell,
/// when they are many, and at the end. Within another one it does nothing.
///
/// Made before a lock is taken, it rings when the lock is free again; whom it wakes would run into
/// the lock. Around a batch of messages, it keeps the thread from being interrupted by each thread
/// that it wakes.
class RingCollector {
 public:
  RingCollector();
  ~RingCollector();

  RingCollector(const RingCollector&) = delete;
  RingCollector& operator=(const RingCollector&) = delete;

 private:
  const bool isInner_;
};

}  // namespace qov

#endif
