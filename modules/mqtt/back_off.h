#ifndef QOV_MODULES_MQTT_BACK_OFF_H
#define QOV_MODULES_MQTT_BACK_OFF_H

#include <algorithm>
#include <chrono>
#include <functional>
#include <random>
#include <utility>

namespace qov::mqtt {

/// How long to wait before the next try. Each wait is drawn from a span that doubles from try to
/// try, so that a thousand agents that lose one broker do not all come back at once.
class BackOff {
 public:
  using Duration = std::chrono::milliseconds;
  /// A number from `least` to `most`.
  using Draw = std::function<Duration::rep(Duration::rep least, Duration::rep most)>;

  static constexpr Duration kShortest{1000};

  explicit BackOff(Duration longest) : BackOff(longest, drawn()) {}
  BackOff(Duration longest, Draw draw) : longest_(longest), draw_(std::move(draw)) {}

  /// From one second to twice that at first, and to `longest` in the end.
  Duration next() {
    span_ = std::min(longest_, 2 * span_);
    return Duration(draw_(kShortest.count(), span_.count()));
  }
  /// Success: the next wait is a first one.
  void reset() { span_ = kShortest; }

 private:
  static Draw drawn() {
    return [engine = std::mt19937_64(std::random_device{}())](Duration::rep least,
                                                              Duration::rep most) mutable {
      return std::uniform_int_distribution<Duration::rep>(least, most)(engine);
    };
  }

  const Duration longest_;
  const Draw draw_;
  Duration span_ = kShortest;
};

}  // namespace qov::mqtt

#endif
