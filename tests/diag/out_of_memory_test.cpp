#include <gmock/gmock.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_logging_strategy.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>

#include "diag/file_strategy.h"
#include "tests/diag/log_capture.h"
#include "tests/diag/process_root.h"
#include "tests/diag/reactor_timers.h"
#include "tests/support/failing_allocations.h"
#include "tests/support/files.h"

namespace {

namespace fs = std::filesystem;
using qov::test::FailingAllocations;
using qov::test::readFile;
using testing::EndsWith;
using testing::HasSubstr;

class OutOfMemory : public testing::Test {
 protected:
  CLogging_Cfg_Param settings(const std::string& file) const {
    CLogging_Cfg_Param param;
    std::snprintf(param.logFile_, sizeof(param.logFile_), "%s", directory_.file(file).c_str());
    return param;
  }

  std::string logged(const std::string& file) const { return readFile(directory_.file(file)); }

  const LogStateKeeper before_;
  const qov::test::TemporaryDirectory directory_;
  const CQOVDebugKit kit_{"KIT", 5};
  CQOV_Logging_Strategy strategy_;
};

TEST_F(OutOfMemory, LeavesAKitThatCannotBeRegisteredToItsOwner) {
  CQOVDebugKitMgr kits;
  CQOVDebugKit kit("KIT", 300);
  errno = 0;
  int added = -1;
  {
    const FailingAllocations none(0);
    added = kits.add(&kit);
  }
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(added, 0);
  EXPECT_EQ(kits.find(300), kits.find(0));
}

TEST_F(OutOfMemory, CostsARecordAndNothingElse) {
  LogCapture capture;
  const std::string endless(2000, 'f');
  {
    const FailingAllocations none(0);
    kit_.error(1, endless.c_str(), 2, "m");
    const CQOVDebugKitGuard guard(0, "a text that is longer than what a string holds in itself");
  }
  capture.clear();
  kit_.error(1, "f", 2, "m");
  EXPECT_EQ(capture.lines(), 1);
}

TEST_F(OutOfMemory, LeavesLoggingAsItWasWhenSettingsCannotBeApplied) {
  const CLogging_Cfg_Param former = settings("former.log");
  CLogging_Cfg_Param next = settings("next.log");
  next.logFileMaxSize_ = 1;
  bool complete = false;
  int refusals = 0;
  for (int granted = 0; !complete; ++granted) {
    strategy_.initLogStrategy(former);
    qov::test::writeFile(next.logFile_, std::string(2000, 'x'));
    errno = 0;
    bool refused = false;
    {
      const auto noMore = FailingAllocations::ofThoseThatThrow(granted);
      refused = strategy_.initLogStrategy(next) == -1 && errno == ENOMEM;
      complete = !noMore.hasFailed();
    }
    const std::string message = "after " + std::to_string(granted);
    kit_.error(1, "f", 2, message);
    EXPECT_EQ(reactorTimers(), 1) << message;
    EXPECT_THAT(logged(refused ? "former.log" : "next.log"), EndsWith("] " + message + "\n"));
    refusals += refused ? 1 : 0;
  }
  EXPECT_GT(refusals, 0);
}

TEST_F(OutOfMemory, DoesNotLeaveTheReadingOfSettingsAsAnException) {
  ProcessRoot::configure(
      "SendTerminal=0\nChkInterval=0\nLogFileMaxSize=x\nLogFileMaxCnt=1\nLogLevel=2\n");
  const std::string tooLong = directory_.file(std::string(300, 'n'));
  bool complete = false;
  for (int granted = 0; !complete; ++granted) {
    const auto noMore = FailingAllocations::ofThoseThatThrow(granted);
    EXPECT_NO_THROW(strategy_.reloadLogStrategy(nullptr, tooLong.c_str())) << granted;
    complete = !noMore.hasFailed();
  }
}

TEST_F(OutOfMemory, ReportsThatThereIsNoStrategy) {
  const CLogging_Cfg_Param param = settings("x.log");
  errno = 0;
  int result = 0;
  {
    const FailingAllocations none(0);
    result = strategy_.initLogStrategy(param);
  }
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(result, -1);
  EXPECT_FALSE(fs::exists(directory_.file("x.log")));
}

TEST_F(OutOfMemory, KeepsNothingFromALogFileThatIsThereAgain) {
  strategy_.initLogStrategy(settings("missing/x.log"));
  std::ostream& toFile = *LogStateKeeper::log().msg_ostream();
  toFile << "one\n";
  fs::create_directory(directory_.file("missing"));
  {
    const FailingAllocations none(0);
    toFile << "two\n";
  }
  EXPECT_TRUE(toFile.good());
  toFile << "three\n";
  // The line that says why the file cannot be opened is one of the two.
  EXPECT_THAT(logged("missing/x.log"), EndsWith("could not be written: 2\ntwo\nthree\n"));
}

TEST_F(OutOfMemory, OnlyPutsARotationOff) {
  CLogging_Cfg_Param param = settings("x.log");
  param.logFileMaxSize_ = 0;
  strategy_.initLogStrategy(param);
  kit_.error(1, "f", 2, "first");
  qov::FileStrategy check(1, 2);
  {
    const FailingAllocations none(0);
    int result = -1;
    EXPECT_NO_THROW(result = check.handle_timeout(ACE_Time_Value::zero, nullptr));
    EXPECT_EQ(result, 0) << "the reactor would cancel the timer";
  }
  EXPECT_THAT(logged("x.log"), EndsWith("] first\n"));
  check.handle_timeout(ACE_Time_Value::zero, nullptr);
  EXPECT_THAT(logged("x.log.1"), EndsWith("] first\n"));
}

}  // namespace
