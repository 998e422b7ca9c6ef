#ifndef QOV_TESTS_DIAG_CONFIGURED_LOG_H
#define QOV_TESTS_DIAG_CONFIGURED_LOG_H

#include <gmock/gmock.h>

#include <sstream>
#include <string>
#include <vector>

#include "tests/diag/log_in_file.h"
#include "tests/diag/process_root.h"
#include "tests/support/files.h"

/// A log file with settings from a configuration. The optional keys are off again afterwards.
class ConfiguredLog : public LogInFile {
 protected:
  void TearDown() override {
    configure("");
    init();
  }

  /// The five keys, then `lines`, of which the last ones count.
  static void configure(const std::string& lines) {
    ProcessRoot::configure(
        "SendTerminal=0\nChkInterval=0\nLogFileMaxSize=0\nLogFileMaxCnt=3\nLogLevel=2\n" + lines);
  }

  void init() { strategy_.initLogStrategy(nullptr, path_.c_str()); }
  void applies(const std::string& lines) {
    configure(lines);
    init();
  }

  void log(const std::string& message) const { kit_.error(7, "f", 2, message); }
  std::string logged() const { return qov::test::readFile(path_); }
  std::vector<std::string> lines() const { return linesOf(logged()); }
  static std::vector<std::string> linesOf(const std::string& all) {
    std::vector<std::string> lines;
    std::istringstream text(all);
    for (std::string line; std::getline(text, line);) {
      lines.push_back(line);
    }
    return lines;
  }
};

#endif
