#include "endure/flatness.h"

#include <cstddef>
#include <string>

#include "tests/support/sanitizers.h"

namespace qov::endure {
namespace {

constexpr std::int64_t kKilobyte = 1024;

/// By how much `values` grow from each to the next over the last half: the slope of the line that
/// is nearest to them, by least squares. 0 while there are too few to tell.
std::int64_t growthOf(const std::vector<std::int64_t>& values) {
  constexpr std::size_t kFewest = 8;
  if (values.size() < kFewest) {
    return 0;
  }
  const std::size_t begin = values.size() / 2;
  const double middle = static_cast<double>(begin + values.size() - 1) / 2;
  double products = 0;
  double squares = 0;
  for (std::size_t i = begin; i < values.size(); ++i) {
    const double place = static_cast<double>(i) - middle;
    products += place * static_cast<double>(values[i]);
    squares += place * place;
  }
  return static_cast<std::int64_t>(products / squares);
}

}  // namespace

void Flatness::add(std::int64_t resident, std::int64_t heap) {
  residents_.push_back(resident);
  heaps_.push_back(heap);
  resident_ = resident / kKilobyte;
  heap_ = heap / kKilobyte;
  residentGrowth_ = growthOf(residents_);
  heapGrowth_ = growthOf(heaps_);
  if (std::getenv("DBG")) fprintf(stderr, "MEM %ld %ld\n", (long)resident, (long)heap);
}

void Flatness::judge() {
  constexpr std::int64_t kMostResident = 64 * kKilobyte;
  constexpr std::int64_t kMostHeap = 1 * kKilobyte;
  if (QOV_TEST_ASAN == 0 && QOV_TEST_TSAN == 0 &&
      (residentGrowth_ > kMostResident || heapGrowth_ > kMostHeap)) {
    campaign_.fail("memory grows from rest to rest: resident by " +
                   std::to_string(residentGrowth_) + " bytes, allocated by " +
                   std::to_string(heapGrowth_));
  }
}

}  // namespace qov::endure
