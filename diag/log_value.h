#ifndef QOV_DIAG_LOG_VALUE_H
#define QOV_DIAG_LOG_VALUE_H

#include <qovpub/qov_logging_strategy.h>

#include <array>
#include <string>

#include "diag/log_form.h"

namespace qov {

/// One key of section "LOG_CFG".
struct LogKey {
  const char* name;
  int CLogging_Cfg_Param::*field;
  int least;  ///< what smaller values come to
  int most;   ///< what larger values come to
};

constexpr int kMaxLevel = 5;

/// In the order in which they are read.
extern const std::array<LogKey, 5> kLogKeys;

/// A key that may be missing, which counts as 0.
struct LogFormKey {
  const char* name;
  LogForm::Part part;  ///< on with 1, off with 0
};

extern const std::array<LogFormKey, 3> kLogFormKeys;

/// The number at the beginning of `text`, as base-10 strtol() has it; the nearest int.
int toInt(const std::string& text);

/// Why `text` cannot be meant as the value of `key`, and what is taken instead; empty when it can.
std::string whyOdd(const LogKey& key, const std::string& text);

/// The same of an optional key.
std::string whyOddSwitch(const std::string& text);
/// Whether `text` switches its key on: the nearest of 0 and 1 is taken.
bool isSwitchedOn(const std::string& text);

}  // namespace qov

#endif
