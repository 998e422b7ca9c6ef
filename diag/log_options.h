#ifndef QOV_DIAG_LOG_OPTIONS_H
#define QOV_DIAG_LOG_OPTIONS_H

#include <qovpub/qov_logging_strategy.h>

#include <array>
#include <vector>

namespace qov {

/// The options that log settings become for ACE_Logging_Strategy::init().
class LogOptions {
 public:
  explicit LogOptions(const CLogging_Cfg_Param& param);
  LogOptions(const LogOptions&) = delete;
  LogOptions& operator=(const LogOptions&) = delete;

  int argc() const { return static_cast<int>(argv_.size()) - 1; }
  /// Ended by null. ACE takes the texts apart in place.
  char** argv() { return argv_.data(); }

 private:
  struct Row {
    std::array<char, 3> option;
    std::array<char, 256> value;
  };

  void set(size_t row, const char* value);
  void set(size_t row, int value);

  std::array<Row, 7> rows_;
  std::vector<char*> argv_;
};

}  // namespace qov

#endif
