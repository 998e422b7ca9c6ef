#ifndef QOV_BENCH_STOPWATCH_H
#define QOV_BENCH_STOPWATCH_H

#include <algorithm>
#include <ctime>
#include <vector>

class Stopwatch {
 public:
  /// Runs by `clock`, one of clock_gettime()'s.
  explicit Stopwatch(clockid_t clock = CLOCK_MONOTONIC) : clock_(clock), start_(now()) {}

  double seconds() const { return now() - start_; }

 private:
  double now() const {
    timespec time{};
    clock_gettime(clock_, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
  }

  const clockid_t clock_;
  const double start_;
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
