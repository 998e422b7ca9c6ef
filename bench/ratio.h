#ifndef QOV_BENCH_RATIO_H
#define QOV_BENCH_RATIO_H

#include <benchmark/benchmark.h>

#include <ctime>

/// Measures two things in turn, batch by batch, so that whatever else the machine does meets both,
/// and reports the time of one call of each and their ratio as counters.
class Ratio {
 public:
  /// `batch` calls are timed at once; fewer when one takes long.
  explicit Ratio(benchmark::State& state, int batch = 1000) : state_(state), batch_(batch) {}

  ~Ratio() {
    const double calls = static_cast<double>(batches_) * batch_;
    state_.counters["ours_ns"] = 1e9 * ours_ / calls;
    state_.counters["theirs_ns"] = 1e9 * theirs_ / calls;
    state_.counters["ratio"] = ours_ / theirs_;
  }

  Ratio(const Ratio&) = delete;
  Ratio& operator=(const Ratio&) = delete;

  /// Times one batch of calls of ours; call theirs() as often.
  template <class Call>
  void ours(const Call& call) {
    const double seconds = secondsOf(call);
    ours_ += seconds;
    ++batches_;
    state_.SetIterationTime(seconds);
  }

  template <class Call>
  void theirs(const Call& call) {
    theirs_ += secondsOf(call);
  }

 private:
  /// Of this thread's own time, which other programs on the machine do not add to.
  static double now() {
    timespec time{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
  }

  template <class Call>
  double secondsOf(const Call& call) const {
    const double start = now();
    for (int i = 0; i < batch_; ++i) {
      call();
    }
    return now() - start;
  }

  benchmark::State& state_;
  const int batch_;
  double ours_ = 0;
  double theirs_ = 0;
  long batches_ = 0;
};

#endif
