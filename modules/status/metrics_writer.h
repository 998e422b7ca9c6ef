#ifndef QOV_MODULES_STATUS_METRICS_WRITER_H
#define QOV_MODULES_STATUS_METRICS_WRITER_H

#include <chrono>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>

namespace qov::status {

/// Which text of metrics. They differ in how counters and the info are named in the lines that
/// describe them, and what reads one form does not read the other.
enum class MetricsForm {
  kOpenMetrics,  ///< version 1.0
  kPrometheus    ///< version 0.0.4, the one that node_exporter and `promtool check metrics` read
};

enum class MetricType { kGauge, kCounter, kInfo, kHistogram };

/// A family of metrics. The name has the unit at its end, and neither "_total" nor "_info".
struct MetricFamily {
  const char* name;
  MetricType type;
  const char* unit;  ///< empty for none
  const char* help;  ///< without '\\', '"' and line ends
};

/// Writes metrics, family by family.
///
/// Thread: one.
/// Errors: throws std::bad_alloc.
class MetricsWriter {
 public:
  using Labels = std::initializer_list<std::pair<const char*, std::string>>;

  /// Each sample has the label `process`: several agents may write for one reader.
  MetricsWriter(MetricsForm form, const std::string& process);

  /// Begins a family, to which the samples belong that follow.
  void begin(const MetricFamily& family);
  void sample(const Labels& labels, const std::string& value);
  /// The same of a histogram, whose samples have an ending each.
  void sample(const char* ending, const Labels& labels, const std::string& value);

  /// Ends the text and returns it.
  std::string finish();

 private:
  const MetricsForm form_;
  const std::string process_;
  std::string sampleName_;  ///< of the family; of a histogram without ending
  std::string text_;
};

/// @{
/// A value.
inline std::string valueOf(std::uint64_t count) {
  return std::to_string(count);
}
std::string valueOf(std::chrono::nanoseconds seconds);
/// @}

}  // namespace qov::status

#endif
