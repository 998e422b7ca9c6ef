#ifndef QOV_DIAG_LOG_FAILURES_H
#define QOV_DIAG_LOG_FAILURES_H

#include <qovpub/qov_ini_operator.h>

#include <string>

#include "frame/env/failure.h"

namespace qov {

// Why there is no log as the configuration asks for it.

/// Section "LOG_CFG" of `ini`, which has read `file`, lacks `key` or is not there.
Failure whyNoLogKey(CQOV_Ini_Operator& ini, const std::string& file, const std::string& key);

/// The log file `path` cannot be opened, `error` is why. Records go to the file `place`; empty:
/// standard error.
Failure whyNoLogFile(const std::string& path, int error, const std::string& place);

/// 0, or why the log file `path` could not be opened by this process. Opens nothing, so a pipe is
/// taken for one that nobody reads.
int errorOfLogFile(const std::string& path);

bool isPipe(const std::string& path);

/// What the settings have room for of the log file's path.
std::string pathThatFits(const std::string& path);

/// The log's path is `path`, of which only `cut` fits.
Failure whyCutPath(const std::string& path, const std::string& cut);

}  // namespace qov

#endif
