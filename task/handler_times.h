#ifndef QOV_TASK_HANDLER_TIMES_H
#define QOV_TASK_HANDLER_TIMES_H

#include <qovpub/qov_activity.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace qov {

/// How often which time was taken: eight buckets for each power of two.
///
/// Thread: a value.
class TimeHistogram {
 public:
  void add(std::uint64_t nanoseconds);
  /// The time that `part` of all did not take longer than, or up to an eighth more; 0 without any.
  /// `part` is greater than 0, and 1 at most.
  std::uint64_t quantile(double part) const;

 private:
  static constexpr unsigned int kUnitBits = 7;    ///< a unit is 128 ns
  static constexpr unsigned int kBucketBits = 3;  ///< of a power of two
  static constexpr unsigned int kHighestBits =
      36;  ///< of units: 2.4 hours, with all that is longer
  static constexpr std::size_t kBuckets =
      (kHighestBits - kBucketBits + 1) * (std::size_t{1} << kBucketBits);

  static std::size_t bucketOf(std::uint64_t nanoseconds);
  /// What is in the bucket is less than this.
  static std::uint64_t endOf(std::size_t bucket);

  std::array<std::uint32_t, kBuckets> counts_{};
};

/// The times of a module's handlers by operation code: of the first QOVActivity::kMostCodes codes
/// each for itself, and of all others together.
///
/// Thread: any.
/// Errors: without memory for a code it counts among the others.
class HandlerTimes {
 public:
  HandlerTimes() { codes_.reserve(QOVActivity::kMostCodes); }
  HandlerTimes(const HandlerTimes&) = delete;
  HandlerTimes& operator=(const HandlerTimes&) = delete;

  void add(std::uint64_t opc, bool isContinuation, std::uint64_t nanoseconds) noexcept;

  /// Appends them as those of `moduleId`.
  void list(unsigned int moduleId, std::vector<QOVHandlerTimes>& times) const;

 private:
  struct Code {
    std::uint64_t opc = 0;
    bool isContinuation = false;
    std::uint64_t count = 0;
    std::uint64_t sum = 0;
    std::uint64_t longest = 0;
    TimeHistogram histogram{};
  };

  /// With the lock held.
  Code& find(std::uint64_t opc, bool isContinuation) noexcept;
  /// A copy; `index` of one beyond the last is that of the others.
  Code copyOf(std::size_t index) const;

  mutable std::mutex mutex_;
  // Guarded by mutex_.
  std::vector<std::unique_ptr<Code>> codes_;
  Code others_;
};

}  // namespace qov

#endif
