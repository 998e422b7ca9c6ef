#include "diag/log_notices.h"

#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_utility.h>

#include <algorithm>

#include "diag/kit_registry.h"
#include "diag/log_failures.h"
#include "diag/log_form.h"
#include "diag/log_ids.h"
#include "diag/log_level.h"
#include "diag/log_value.h"
#include "frame/env/env_ini_import.h"
#include "frame/env/failure.h"

namespace qov {

namespace {

constexpr const char* kApplying = "initLogStrategy";

void warn(unsigned long long logId, unsigned int line, const std::string& message) {
  if (const CQOVDebugKit* const kit = KitRegistry::find(0)) {
    kit->warn(logId, kApplying, line, message);
  }
}

void warnOfNothingRead(Failure failure) {
  failure.cause += "; the log stays as it is";
  warn(log_id::kLogNotConfigured, __LINE__, textOf(failure));
}

Failure whyNoConfig() {
  try {
    return whyNoIniFile(QOV_Utility::getProcessCfgFileName());
  } catch (const CQOV_Exception& e) {
    return {"read the configuration", {}, 0, {}, e.what()};
  }
}

/// Of the optional keys, those that are on.
std::string describe(LogForm form) {
  std::string text;
  for (const LogFormKey& key : kLogFormKeys) {
    if (form.has(key.part)) {
      text += std::string(", ") + key.name + " 1";
    }
  }
  return text;
}

std::string describe(const CLogging_Cfg_Param& param, const std::string& place) {
  const std::string begin = "Log settings in force: ";
  const std::string end = describe(LogForm::now());
  if (param.sendTerminal_ != 0) {
    return begin + "standard error, levels as they were, from " + lowestLevelOn() + " up" + end;
  }
  const auto shown = [](int value, int least) { return std::to_string(std::max(value, least)); };
  return begin + "LogLevel " + shown(param.logLevel_, 0) + ", " +
         (place.empty() ? "standard error" : "file " + place) + ", LogFileMaxSize " +
         shown(param.logFileMaxSize_, 0) + " KB, LogFileMaxCnt " + shown(param.logFileMaxCnt_, 1) +
         ", ChkInterval " + shown(param.chkInterval_, 0) + " s" + end;
}

}  // namespace

void warnOfNoConfig() {
  warnOfNothingRead(whyNoConfig());
}

void warnOfNoKey(CQOV_Ini_Operator& ini, const std::string& key) {
  warnOfNothingRead(whyNoLogKey(ini, QOV_Utility::getProcessCfgFileName(), key));
}

void warnOfNoMemory() noexcept {
  if (const CQOVDebugKit* const kit = KitRegistry::find(0)) {
    kit->warn(log_id::kLogNotConfigured, kApplying, __LINE__,
              "Failed to configure the log: Cannot allocate memory; the log stays as it is");
  }
}

std::string describeOddValue(const char* key, const std::string& why) {
  return textOf({"take a value as it stands", QOV_Utility::getProcessCfgFileName(), 0,
                 std::string("LOG_CFG/") + key, why});
}

void warnOfOddValue(const std::string& description) noexcept {
  warn(log_id::kLogOddValue, __LINE__, description);
}

void warnOfCutName(const char* logFile, const char* cut) noexcept {
  warn(log_id::kLogPathCut, __LINE__, textOf(whyCutPath(logFile, cut)));
}

void tellNoFile(const char* file, const LogSink& sink) noexcept {
  if (const CQOVDebugKit* const kit = KitRegistry::find(0)) {
    kit->error(log_id::kLogNotOpened, kApplying, __LINE__,
               textOf(whyNoLogFile(file, sink.openError(), sink.place())));
  }
}

void tellNotRotated(Failure failure) {
  if (const CQOVDebugKit* const kit = KitRegistry::find(0)) {
    failure.cause += "; it grows on";
    kit->error(log_id::kLogNotRotated, "checkFile", __LINE__, textOf(failure));
  }
}

void tellSettings(const CLogging_Cfg_Param& param, const LogSink& sink) noexcept {
  if (const CQOVDebugKit* const kit = KitRegistry::find(0)) {
    kit->info(log_id::kLogSettings, "reloadLogStrategy", __LINE__, describe(param, sink.place()));
  }
}

}  // namespace qov
