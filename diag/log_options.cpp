#include "diag/log_options.h"

#include <safeclib/safe_str_lib.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace qov {

namespace {

enum RowNumber : size_t {
  kDestination,
  kFile,
  kInterval,
  kMaxSize,
  kMaxCount,
  kOrder,
  kPriorities
};

/// The priorities of each "LogLevel". Levels 2 and 3 are the same, and CRITICAL is off everywhere:
/// both are kept so.
constexpr std::array<const char*, 6> kLevelPriorities = {
    "~SHUTDOWN|TRACE|DEBUG|INFO|NOTICE|WARNING|~STARTUP|ERROR|~CRITICAL|~ALERT|~EMERGENCY",
    "~SHUTDOWN|~TRACE|DEBUG|INFO|NOTICE|WARNING|~STARTUP|ERROR|~CRITICAL|~ALERT|~EMERGENCY",
    "~SHUTDOWN|~TRACE|~DEBUG|INFO|NOTICE|WARNING|~STARTUP|ERROR|~CRITICAL|~ALERT|~EMERGENCY",
    "~SHUTDOWN|~TRACE|~DEBUG|INFO|NOTICE|WARNING|~STARTUP|ERROR|~CRITICAL|~ALERT|~EMERGENCY",
    "~SHUTDOWN|~TRACE|~DEBUG|~INFO|~NOTICE|WARNING|~STARTUP|ERROR|~CRITICAL|~ALERT|~EMERGENCY",
    "~SHUTDOWN|~TRACE|~DEBUG|~INFO|~NOTICE|~WARNING|~STARTUP|ERROR|~CRITICAL|~ALERT|~EMERGENCY"};

const char* prioritiesOf(int level) {
  const int last = static_cast<int>(kLevelPriorities.size()) - 1;
  return kLevelPriorities[static_cast<size_t>(std::clamp(level, 0, last))];
}

}  // namespace

LogOptions::LogOptions(const CLogging_Cfg_Param& param)
    : rows_{{{{"-f"}, {}},
             {{"-s"}, {}},
             {{"-i"}, {}},
             {{"-m"}, {}},
             {{"-N"}, {}},
             {{"-o"}, {}},
             {{"-p"}, {}}}} {
  const bool toTerminal = param.sendTerminal_ != 0;
  set(kDestination, toTerminal ? "STDERR" : "OSTREAM");
  set(kFile, param.logFile_);
  set(kInterval, param.chkInterval_);
  set(kMaxSize, param.logFileMaxSize_);
  set(kMaxCount, param.logFileMaxCnt_);
  set(kPriorities, prioritiesOf(param.logLevel_));
  const size_t used = toTerminal ? 1 : rows_.size();
  for (size_t row = 0; row < used; ++row) {
    const bool hasValue = rows_[row].value[0] != '\0';
    if (!hasValue && row != kOrder) {
      continue;  // an option without its value would take the next option for it
    }
    argv_.push_back(rows_[row].option.data());
    if (hasValue) {
      argv_.push_back(rows_[row].value.data());
    }
  }
  argv_.push_back(nullptr);
}

void LogOptions::set(size_t row, const char* value) {
  auto& to = rows_[row].value;
  strncpy_s(to.data(), to.size(), value, std::min(std::strlen(value), to.size() - 1));
}

void LogOptions::set(size_t row, int value) {
  set(row, std::to_string(value).c_str());
}

}  // namespace qov
