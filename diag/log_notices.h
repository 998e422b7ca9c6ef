#ifndef QOV_DIAG_LOG_NOTICES_H
#define QOV_DIAG_LOG_NOTICES_H

#include <qovpub/qov_ini_operator.h>
#include <qovpub/qov_logging_strategy.h>

#include <string>

#include "diag/log_sink.h"
#include "frame/env/failure.h"

namespace qov {

// What the log says of its own settings, in records of the public kit. Those that are noexcept come
// when the settings have been applied: it is too late to refuse them for want of memory.

/// The configuration cannot be read.
void warnOfNoConfig();
/// Section "LOG_CFG" of `ini` lacks `key`, or is not there.
void warnOfNoKey(CQOV_Ini_Operator& ini, const std::string& key);

/// There was no memory to read or to apply it. Takes none itself.
void warnOfNoMemory() noexcept;

/// What warnOfOddValue() is to say of `key`, for the `why` of whyOdd().
std::string describeOddValue(const char* key, const std::string& why);
void warnOfOddValue(const std::string& description) noexcept;

/// `cut` is what could be taken of the path `logFile`.
void warnOfCutName(const char* logFile, const char* cut) noexcept;
/// `sink` cannot open the log file. An error, which every "LogLevel" lets through.
void tellNoFile(const char* file, const LogSink& sink) noexcept;
/// A file that should be rotated cannot be. An error for the same reason.
void tellNotRotated(Failure failure);
/// `param` is in force, and records go to `sink`.
void tellSettings(const CLogging_Cfg_Param& param, const LogSink& sink) noexcept;

}  // namespace qov

#endif
