#ifndef QOV_BENCH_STOPWATCH_H
#define QOV_BENCH_STOPWATCH_H

#include <algorithm>
#include <chrono>
#include <vector>

class Stopwatch {
 public:
  double seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  }

 private:
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

inline double medianOf(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// Appends the duration of each of `count` calls, and returns that of all.
template <class Call>
double sample(const Call& call, int count, std::vector<double>& seconds) {
  const Stopwatch all;
  for (int i = 0; i < count; ++i) {
    const Stopwatch one;
    call();
    seconds.push_back(one.seconds());
  }
  return all.seconds();
}

#endif
