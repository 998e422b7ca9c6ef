#ifndef QOV_ENDURE_FLATNESS_H
#define QOV_ENDURE_FLATNESS_H

#include <cstdint>
#include <vector>

#include "endure/campaign.h"
#include "tests/support/sanitizers.h"

namespace qov::endure {

/// Whether figures of memory tell something: a sanitizer keeps what was freed.
constexpr bool memoryIsMeasured() {
  return QOV_TEST_ASAN == 0 && QOV_TEST_TSAN == 0;
}

/// The memory of a process each time that it is at rest: it is to stay flat over the last half of a
/// campaign.
class Flatness {
 public:
  explicit Flatness(Campaign& campaign);

  /// What is resident, and what is allocated and not freed, both in bytes.
  void add(std::int64_t resident, std::int64_t heap);

  /// At the end: fails the campaign if one of them has grown, and leaves its figures in a file. Not
  /// watched are fewer than 16 rests, and builds with a sanitizer, which keeps what was freed.
  void judge();

 private:
  void judge(const char* what, const std::vector<std::int64_t>& values, double most, Figure& growth,
             Figure& error);

  Campaign& campaign_;
  std::vector<std::int64_t> residents_;
  std::vector<std::int64_t> heaps_;
  Figure& resident_ = campaign_.figure("rss_kb");
  Figure& residentGrowth_ = campaign_.figure("rss_growth");
  Figure& residentError_ = campaign_.figure("rss_growth_error");
  Figure& heap_ = campaign_.figure("heap_kb");
  Figure& heapGrowth_ = campaign_.figure("heap_growth");
  Figure& heapError_ = campaign_.figure("heap_growth_error");
};

}  // namespace qov::endure

#endif
