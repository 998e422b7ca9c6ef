#ifndef QOV_TASK_EVENT_RING_H
#define QOV_TASK_EVENT_RING_H

#include <qovpub/qov_trace.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace qov {

/// The last events of the trace.
///
/// Thread: any. Nobody waits for anybody.
/// Errors: read() throws std::bad_alloc.
class EventRing {
 public:
  /// The place of one event, from when it gets its number to the end of the object.
  class Place {
   public:
    explicit Place(EventRing& ring);
    ~Place();
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    /// Gives the event up if a whole round of others has overtaken it, or if it has overtaken one
    /// that is still being written.
    void fill(const QOVTraceEvent& event);

   private:
    EventRing& ring_;
    const std::uint64_t number_;
  };

  /// Number of the next event.
  std::uint64_t next() const { return next_.load(std::memory_order_acquire); }

  QOVMessageTrace::Part read(std::uint64_t from, std::size_t most) const;

 private:
  /// An event as whole words, since a reader may look while one is written.
  using Words = std::array<std::uint64_t, 4>;

  /// The room of each kRoom-th event. Who writes marks it, fills it and marks it as complete; who
  /// reads looks at the mark before and after.
  class Slot {
   public:
    void write(std::uint64_t number, const Words& words);
    /// False if another event stands here, or an unfinished one.
    bool read(std::uint64_t number, Words& words) const;

   private:
    std::atomic<std::uint64_t> mark_{0};
    std::array<std::atomic<std::uint64_t>, std::tuple_size_v<Words>> words_{};
  };

  static Words pack(const QOVTraceEvent& event);
  static QOVTraceEvent unpack(const Words& words);

  std::uint64_t takeNumber();

  /// Raised before a number is taken, so who sees that number and no writer sees it finished.
  std::atomic<std::uint64_t> writers_{0};
  std::atomic<std::uint64_t> next_{0};
  std::array<Slot, QOVMessageTrace::kRoom> slots_{};
};

}  // namespace qov

#endif
