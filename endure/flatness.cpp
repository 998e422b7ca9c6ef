#include "endure/flatness.h"

#include <cmath>
#include <cstddef>
#include <numeric>
#include <string>

namespace qov::endure {
namespace {

constexpr std::int64_t kKilobyte = 1024;
/// In bytes, from one rest to the next: pages that the allocator cannot give back, and buffers that
/// grow once.
constexpr double kMostResident = 65536;
constexpr double kMostHeap = 512;

/// The line that is nearest to the last half of `values`, by least squares.
struct Line {
  double growth = 0;  ///< from each value to the next
  double error = 0;   ///< the standard error of that

  explicit Line(const std::vector<std::int64_t>& values) {
    const std::vector<double> half(values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2),
                                   values.end());
    const auto count = static_cast<double>(half.size());
    const double middle = (count - 1) / 2;
    const double mean = std::accumulate(half.begin(), half.end(), 0.0) / count;
    double squares = 0;
    for (std::size_t i = 0; i < half.size(); ++i) {
      const double place = static_cast<double>(i) - middle;
      growth += place * half[i];
      squares += place * place;
    }
    growth /= squares;
    for (std::size_t i = 0; i < half.size(); ++i) {
      const double apart = half[i] - mean - growth * (static_cast<double>(i) - middle);
      error += apart * apart;
    }
    error = std::sqrt(error / (count - 2) / squares);
  }
};

}  // namespace

void Flatness::add(std::int64_t resident, std::int64_t heap) {
  residents_.push_back(resident);
  heaps_.push_back(heap);
  resident_ = resident / kKilobyte;
  heap_ = heap / kKilobyte;
}

void Flatness::judge() {
  constexpr std::size_t kFewest = 16;
  if (!memoryIsMeasured() || heaps_.size() < kFewest) {
    campaign_.notWatched("memory, of fewer than 16 rests or with a sanitizer");
    return;
  }
  judge("resident", residents_, kMostResident, residentGrowth_);
  judge("allocated", heaps_, kMostHeap, heapGrowth_);
}

void Flatness::judge(const char* what, const std::vector<std::int64_t>& values, double most,
                     Figure& growth) {
  // What looks like growth by chance.
  constexpr double kErrors = 5;
  const Line line(values);
  growth = static_cast<std::int64_t>(line.growth);
  if (line.growth > most + kErrors * line.error) {
    campaign_.fail(std::string(what) + " memory grows by " + std::to_string(growth) +
                   " bytes from one rest to the next");
  }
}

}  // namespace qov::endure
