#include "endure/flatness.h"

#include <cmath>
#include <cstddef>
#include <fstream>
#include <numeric>
#include <string>

namespace qov::endure {
namespace {

constexpr std::int64_t kKilobyte = 1024;
// In bytes, over the last half of a campaign.
/// Pages that the allocator cannot give back.
constexpr double kMostResident = 1 << 20;
/// What threads and buffers have had at most, which on a busy machine grows late. From eight
/// minutes of campaign "life" on, 48 bytes lost in each load that fails in one of its nine ways are
/// more.
constexpr double kMostHeap = 64 << 10;

/// The line that is nearest to the last half of `values`, by least squares.
struct Line {
  double growth = 0;  ///< from its begin to its end
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
    error = std::sqrt(error / (count - 2) / squares) * (count - 1);
    growth *= count - 1;
  }
};

}  // namespace

Flatness::Flatness(Campaign& campaign) : campaign_(campaign) {
  // So that these do not grow themselves.
  constexpr std::size_t kMostRests = 1U << 16U;
  residents_.reserve(kMostRests);
  heaps_.reserve(kMostRests);
}

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
  judge("resident", residents_, kMostResident, residentGrowth_, residentError_);
  judge("allocated", heaps_, kMostHeap, heapGrowth_, heapError_);
}

void Flatness::judge(const char* what, const std::vector<std::int64_t>& values, double most,
                     Figure& growth, Figure& error) {
  // What looks like growth by chance.
  constexpr double kErrors = 5;
  const Line line(values);
  growth = static_cast<std::int64_t>(line.growth);
  error = static_cast<std::int64_t>(std::ceil(line.error));
  if (line.growth > most + kErrors * line.error) {
    std::ofstream all(campaign_.folder() / what);
    for (const std::int64_t value : values) {
      all << value << '\n';
    }
    campaign_.fail(std::string(what) + " memory has grown by " + std::to_string(growth) +
                   " bytes in the last half");
  }
}

}  // namespace qov::endure
