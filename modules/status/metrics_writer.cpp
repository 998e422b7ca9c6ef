#include "modules/status/metrics_writer.h"

namespace qov::status {
namespace {

const char* typeText(MetricType type, MetricsForm form) {
  switch (type) {
    case MetricType::kCounter:
      return "counter";
    case MetricType::kHistogram:
      return "histogram";
    case MetricType::kInfo:
      return form == MetricsForm::kOpenMetrics ? "info" : "gauge";
    case MetricType::kGauge:
      break;
  }
  return "gauge";
}

const char* endingOf(MetricType type) {
  return type == MetricType::kCounter ? "_total" : type == MetricType::kInfo ? "_info" : "";
}

/// As the value of a label. A reader refuses a whole text for one byte that is no UTF-8, and a
/// terminal obeys control characters, so that what is not printable ASCII is "?".
std::string escaped(const std::string& value) {
  std::string result;
  for (const char byte : value) {
    if (byte == '\n') {
      result += "\\n";
    } else if (byte == '\\' || byte == '"') {
      result += {'\\', byte};
    } else {
      result += byte >= ' ' && byte <= '~' ? byte : '?';
    }
  }
  return result;
}

}  // namespace

MetricsWriter::MetricsWriter(MetricsForm form, const std::string& process)
    : form_(form), process_(escaped(process)) {}

void MetricsWriter::begin(const MetricFamily& family) {
  sampleName_ = std::string(family.name) + endingOf(family.type);
  const std::string name = form_ == MetricsForm::kOpenMetrics ? family.name : sampleName_;
  text_ += "# HELP " + name + " " + family.help + "\n";
  text_ += "# TYPE " + name + " " + typeText(family.type, form_) + "\n";
  if (*family.unit != '\0') {
    text_ += "# UNIT " + name + " " + family.unit + "\n";
  }
}

void MetricsWriter::sample(const Labels& labels, const std::string& value) {
  sample("", labels, value);
}

void MetricsWriter::sample(const char* ending, const Labels& labels, const std::string& value) {
  text_ += sampleName_ + ending + "{process=\"" + process_ + "\"";
  for (const auto& [name, text] : labels) {
    text_ += std::string(",") + name + "=\"" + escaped(text) + "\"";
  }
  text_ += "} " + value + "\n";
}

std::string MetricsWriter::finish() {
  text_ += "# EOF\n";
  return std::move(text_);
}

std::string valueOf(std::chrono::nanoseconds seconds) {
  constexpr std::int64_t kBillion = 1000000000;
  const std::string fraction = std::to_string(kBillion + seconds.count() % kBillion);
  std::string text = std::to_string(seconds.count() / kBillion) + "." + fraction.substr(1);
  text.erase(text.find_last_not_of('0') + 1);
  return text.back() == '.' ? text + "0" : text;
}

}  // namespace qov::status
