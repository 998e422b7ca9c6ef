#ifndef QOV_TESTS_DIAG_LOG_IN_FILE_H
#define QOV_TESTS_DIAG_LOG_IN_FILE_H

#include <gtest/gtest.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_logging_strategy.h>

#include <string>

#include "tests/diag/log_capture.h"
#include "tests/support/files.h"

/// A log file in a folder of its own, not in force yet, and a kit that logs. What ACE logs goes
/// afterwards where it went before.
class LogInFile : public testing::Test {
 protected:
  const LogStateKeeper before_;
  const qov::test::TemporaryDirectory directory_;
  const std::string path_ = directory_.file("x.log");
  const CQOVDebugKit kit_{"KIT", 5};
  CQOV_Logging_Strategy strategy_;
};

#endif
