#ifndef QOV_MODULES_MQTT_SELDOM_H
#define QOV_MODULES_MQTT_SELDOM_H

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>

namespace qov::mqtt {

/// Counts what may happen very often, and says when the log is to tell of it.
///
/// Thread: any.
class Seldom {
 public:
  using Clock = std::chrono::steady_clock;

  static constexpr std::chrono::minutes kSpan{10};  ///< from one record to the next

  /// One more. How many there are so far if it is to be told, else 0.
  std::uint64_t add(Clock::time_point now = Clock::now()) {
    const std::lock_guard lock(lock_);
    ++count_;
    if (toldAt_ && now < *toldAt_ + kSpan) {
      return 0;
    }
    toldAt_ = now;
    return count_;
  }

 private:
  std::mutex lock_;
  std::uint64_t count_ = 0;
  std::optional<Clock::time_point> toldAt_;
};

}  // namespace qov::mqtt

#endif
