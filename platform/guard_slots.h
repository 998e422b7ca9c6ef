#ifndef QOV_PLATFORM_GUARD_SLOTS_H
#define QOV_PLATFORM_GUARD_SLOTS_H

#include <array>
#include <atomic>
#include <cstdint>
#include <iosfwd>

namespace qov::platform {

/// What the watching thread may see of one open guard. The guard's thread writes it, the watching
/// thread reads it and claims an overdue one; neither waits for the other.
class GuardSlot {
 public:
  bool isFree() const { return deadline_.load(std::memory_order_relaxed) == kFree; }

  /// What the log line says of a guard, and the stream its thread's records go to (or null).
  struct Handling {
    unsigned kind;
    unsigned level;
    unsigned seconds;
    std::ostream* log;
  };

  /// `deadline` is in nanoseconds of the steady clock, above 0.
  void open(std::int64_t deadline, const Handling& handling);

  /// Frees the slot. True if the watching thread has claimed it, so that the line is its business.
  bool close();

  /// 0 when nothing is left to watch here.
  std::int64_t deadline() const;

  /// Takes the guard that had `deadline` over from its thread; false if it has closed meanwhile.
  bool claim(std::int64_t deadline, Handling& overdue);

  void reset() { deadline_.store(kFree, std::memory_order_relaxed); }

 private:
  static constexpr std::int64_t kFree = 0;
  static constexpr std::int64_t kClaimed = -1;

  std::atomic<std::int64_t> deadline_{kFree};
  std::atomic<unsigned> kind_{0};
  std::atomic<unsigned> level_{0};
  std::atomic<unsigned> seconds_{0};
  std::atomic<std::ostream*> log_{nullptr};
};

/// The slots of one thread. They are never freed, so that the watching thread can walk them without
/// a lock; a thread that ends leaves its own to the next one.
class ThreadSlots {
 public:
  /// Guards of one thread that are open at once and seen while they hang; those nested deeper are
  /// checked on closing only.
  static constexpr std::size_t kDepth = 8;

  /// The calling thread's slots, or null when there is no memory for them, or when the thread ends
  /// and has given them back.
  static ThreadSlots* mine();
  /// All slots that were ever made, linked by next().
  static ThreadSlots* first();
  /// Empties the slots of all threads but the calling one, the only one left after a fork.
  static void keepOnlyMine();

  ThreadSlots* next() const { return next_; }
  std::array<GuardSlot, kDepth>& slots() { return slots_; }
  /// The innermost free slot, or null.
  GuardSlot* freeSlot();
  /// The kernel's id of the thread, as debuggers and /proc show it.
  int threadId() const { return threadId_.load(std::memory_order_relaxed); }

 private:
  friend class SlotsLease;
  static ThreadSlots* take();
  void giveBack();

  std::array<GuardSlot, kDepth> slots_;
  std::atomic<int> threadId_{0};
  std::atomic<bool> taken_{true};
  ThreadSlots* next_ = nullptr;
};

}  // namespace qov::platform

#endif
