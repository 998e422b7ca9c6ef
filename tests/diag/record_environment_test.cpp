#include <fcntl.h>
#include <gmock/gmock.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_utility.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <thread>

#include "tests/diag/log_capture.h"
#include "tests/support/files.h"

namespace {

/// These need a process that has not read its configuration yet: they run in one of their own.
class RecordEnvironmentDeathTest : public testing::Test {
 protected:
  RecordEnvironmentDeathTest() {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    CProcInfo::getProcName(processName_);
  }

  std::string processName_;
};

/// Logs in its destructor, which an exception runs.
class Witness {
 public:
  explicit Witness(const CQOVDebugKit& kit) : kit_(kit) {}
  ~Witness() { kit_.error(1, "f", 2, "in a destructor"); }
  Witness(const Witness&) = delete;
  Witness& operator=(const Witness&) = delete;

 private:
  const CQOVDebugKit& kit_;
};

void logWithoutConfiguration(const std::string& processName) {
  const qov::test::TemporaryDirectory root;
  ::setenv("QOV_ROOT", root.path().c_str(), 1);
  const CQOVDebugKit kit("KIT", 5);
  const LogCapture capture;
  kit.error(1, "f", 2, "before");
  try {
    const Witness witness(kit);
    QOV_Utility::getProcessCfgFileName();
    std::_Exit(1);
  } catch (const CQOV_Exception& exception) {
    kit.error(1, "f", 2, exception.what());
  }
  root.remove();
  const std::string text = capture.text();
  const bool allThere = capture.lines() == 3 &&
                        text.find("[" + processName + ":") != std::string::npos &&
                        text.find("] before\n") != std::string::npos &&
                        text.find("] in a destructor\n") != std::string::npos &&
                        text.find("] CQOV_Exception: can't open") != std::string::npos;
  std::_Exit(allThere ? 0 : 2);
}

TEST_F(RecordEnvironmentDeathTest, RecordsAreMadeWithoutAConfiguration) {
  EXPECT_EXIT(logWithoutConfiguration(processName_), testing::ExitedWithCode(0), "");
}

/// The configuration is a pipe that nobody writes to yet, so that reading it holds the singleton
/// for as long as the record takes.
void logWhileTheConfigurationIsRead(const std::string& processName) {
  const qov::test::TemporaryDirectory root;
  ::setenv("QOV_ROOT", root.path().c_str(), 1);
  const std::string cfg = root.file("conf/" + processName + "/" + processName + ".cfg");
  qov::test::writeFile(cfg, "");
  std::filesystem::remove(cfg);
  if (::mkfifo(cfg.c_str(), 0600) != 0) {
    std::_Exit(1);
  }
  std::thread reader([] {
    try {
      QOV_Utility::getProcPID();
    } catch (const CQOV_Exception&) {
    }
  });
  const int pipe = ::open(cfg.c_str(), O_WRONLY);  // returns when the reader has opened it
  const CQOVDebugKit kit("KIT", 5);
  const LogCapture capture;
  kit.error(1, "f", 2, "meanwhile");
  ::close(pipe);
  reader.join();
  root.remove();
  std::_Exit(capture.lines() == 1 ? 0 : 2);
}

TEST_F(RecordEnvironmentDeathTest, RecordsAreMadeWhileTheConfigurationIsRead) {
  EXPECT_EXIT(logWhileTheConfigurationIsRead(processName_), testing::ExitedWithCode(0), "");
}

}  // namespace
