#include <fcntl.h>
#include <gmock/gmock.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_utility.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <optional>
#include <string>
#include <thread>

#include "tests/diag/log_capture.h"
#include "tests/support/files.h"

namespace {

constexpr int kNoLeases = 77;

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

/// Keeps every other opening of a file waiting until it goes.
class Lease {
 public:
  explicit Lease(const std::string& file) : descriptor_(::open(file.c_str(), O_RDWR)) {
    sigemptyset(&signal_);
    sigaddset(&signal_, SIGIO);
    ::pthread_sigmask(SIG_BLOCK, &signal_, nullptr);
    held_ = ::fcntl(descriptor_, F_SETLEASE, F_WRLCK) == 0;
  }
  ~Lease() { ::close(descriptor_); }
  Lease(const Lease&) = delete;
  Lease& operator=(const Lease&) = delete;

  bool held() const { return held_; }

  /// Returns when someone waits.
  void waitForOpening() const {
    int signum = 0;
    ::sigwait(&signal_, &signum);
  }

 private:
  sigset_t signal_;
  const int descriptor_;
  bool held_ = false;
};

/// Opening the configuration waits, so that reading it holds the singleton for as long as the
/// record takes.
void logWhileTheConfigurationIsRead(const std::string& processName) {
  const qov::test::TemporaryDirectory root;
  ::setenv("QOV_ROOT", root.path().c_str(), 1);
  const std::string cfg = root.file("conf/" + processName + "/" + processName + ".cfg");
  qov::test::writeFile(cfg, "[QOV_GLOBAL]\nPROC_PID=1\n");
  std::optional<Lease> lease(cfg);
  if (!lease->held()) {
    root.remove();
    std::_Exit(kNoLeases);
  }
  std::thread reader([] { QOV_Utility::getProcPID(); });
  lease->waitForOpening();
  const CQOVDebugKit kit("KIT", 5);
  const LogCapture capture;
  kit.error(1, "f", 2, "meanwhile");
  lease.reset();
  reader.join();
  root.remove();
  std::_Exit(capture.lines() == 1 ? 0 : 2);
}

TEST_F(RecordEnvironmentDeathTest, RecordsAreMadeWhileTheConfigurationIsRead) {
  bool noLeases = false;
  const auto endsWell = [&noLeases](int status) {
    noLeases = testing::ExitedWithCode(kNoLeases)(status);
    return noLeases || testing::ExitedWithCode(0)(status);
  };
  EXPECT_EXIT(logWhileTheConfigurationIsRead(processName_), endsWell, "");
  if (noLeases) {
    GTEST_SKIP() << "the file system here has no leases";
  }
}

}  // namespace
