#ifndef QOV_ENDURE_LATENESS_H
#define QOV_ENDURE_LATENESS_H

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

namespace qov::endure {

/// How late things were.
///
/// Thread: any.
class Lateness {
 public:
  using Milliseconds = std::chrono::milliseconds;

  void note(std::chrono::microseconds late) {
    const auto whole = std::chrono::ceil<Milliseconds>(late).count();
    ++counts_[static_cast<std::size_t>(std::clamp<std::int64_t>(whole, 0, kMost))];
  }

  /// All but one of `n` were at most so late; 0 without any. What was later than 10 s counts so.
  Milliseconds allButOneIn(std::uint64_t n) const {
    std::uint64_t left = 0;
    for (const auto& count : counts_) {
      left += count;
    }
    left /= n;
    std::size_t late = counts_.size() - 1;
    for (; late > 0; --late) {
      const std::uint64_t here = counts_[late];  // once: others note meanwhile
      if (here > left) {
        break;
      }
      left -= here;
    }
    return Milliseconds(late);
  }

 private:
  static constexpr std::int64_t kMost = 10000;

  std::array<std::atomic<std::uint64_t>, kMost + 1> counts_{};
};

/// How late requests ended, and how late the machine lets a thread go on that waits for time alone.
struct LatenessOfAll {
  Lateness asked_;       ///< of requests that a task has waited for
  Lateness askedLater_;  ///< of continuations, which wait for a worker, too
  Lateness thread_;
};

}  // namespace qov::endure

#endif
