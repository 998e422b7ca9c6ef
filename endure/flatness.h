#ifndef QOV_ENDURE_FLATNESS_H
#define QOV_ENDURE_FLATNESS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "tests/support/sanitizers.h"

namespace qov::endure {

/// A number that is to stay flat over the last half of a campaign.
class Flatness {
 public:
  void add(std::int64_t value) { values_.push_back(value); }

  /// By how much the highest value of the last quarter is above the highest of the quarter before;
  /// 0 while there are too few to tell.
  std::int64_t growth() const {
    constexpr std::ptrdiff_t kQuarters = 4;
    const std::ptrdiff_t quarter = static_cast<std::ptrdiff_t>(values_.size()) / kQuarters;
    if (quarter == 0) {
      return 0;
    }
    const auto last = values_.end() - quarter;
    return *std::max_element(last, values_.end()) - *std::max_element(last - quarter, last);
  }

 private:
  std::vector<std::int64_t> values_;
};

/// Whether figures of memory tell something: a sanitizer keeps what was freed.
inline constexpr bool memoryIsMeasured() {
  return QOV_TEST_ASAN == 0 && QOV_TEST_TSAN == 0;
}

}  // namespace qov::endure

#endif
