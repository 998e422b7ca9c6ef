#ifndef QOV_MODULES_STATUS_METRICS_FILE_H
#define QOV_MODULES_STATUS_METRICS_FILE_H

#include <string>
#include <utility>

namespace qov::status {

/// A file of metrics, which a reader finds whole at any time.
///
/// Each version is written beside it, as <path>.new, and then takes its name. A reader of all that
/// ends in ".prom" does not see the former, and the next agent replaces one that a killed agent has
/// left behind. The file goes with this object: whoever collects metrics sees that there are no new
/// ones. That of a killed agent stays.
///
/// Thread: one.
class MetricsFile {
 public:
  explicit MetricsFile(std::string path) : path_(std::move(path)), fresh_(path_ + ".new") {}
  ~MetricsFile();

  MetricsFile(const MetricsFile&) = delete;
  MetricsFile& operator=(const MetricsFile&) = delete;

  const std::string& path() const { return path_; }

  /// Replaces the file, mode 0644. Returns 0, or the error number of what failed; the old file is
  /// there then.
  int write(const std::string& text);

 private:
  int writeFresh(const std::string& text) const;

  const std::string path_;
  const std::string fresh_;
  bool isThere_ = false;  ///< has been written
};

}  // namespace qov::status

#endif
