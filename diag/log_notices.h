#ifndef QOV_DIAG_LOG_NOTICES_H
#define QOV_DIAG_LOG_NOTICES_H

#include <qovpub/qov_ini_operator.h>
#include <qovpub/qov_logging_strategy.h>

#include <string>

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
/// The log file cannot be opened, `error` is why. Records go to the file `place`; empty: standard
/// error. An error, which every "LogLevel" lets through.
void tellNoFile(const char* file, int error, const std::string& place) noexcept;
/// A file that should be rotated cannot be. An error for the same reason.
void tellNotRotated(Failure failure);
/// `param` is in force. Records go to the file `place`; empty: standard error.
void tellSettings(const CLogging_Cfg_Param& param, const std::string& place) noexcept;

}  // namespace qov

#endif
