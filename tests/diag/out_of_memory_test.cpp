#include <ace/Configuration_Import_Export.h>
#include <ace/Hash_Map_Manager_T.h>
#include <ace/Singleton.h>
#include <ace/Timer_Queue_T.h>
#include <gmock/gmock.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_logging_strategy.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <new>
#include <string>

#include "diag/file_strategy.h"
#include "diag/folding.h"
#include "tests/diag/log_capture.h"
#include "tests/diag/process_root.h"
#include "tests/diag/reactor_timers.h"
#include "tests/support/child.h"
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

/// Fails the table of a registry's map.
FailingAllocations noMap() {
  constexpr std::size_t kBuckets = 256;
  return FailingAllocations::ofArraysThatGiveNull(
      kBuckets * sizeof(ACE_Hash_Map_Entry<unsigned int, CQOVDebugKit*>));
}

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

TEST_F(OutOfMemory, OfTheProcessesRegistryLeavesNothingBehind) {
  EXPECT_TRUE(qov::test::holdsInChild([] {
    // Of an earlier test.
    ACE_Unmanaged_Singleton<CQOVDebugKitMgr, ACE_Thread_Mutex>::close();
    bool lacked = false;
    try {
      const auto none = FailingAllocations::ofThoseThatThrow(0);
      CQOVDebugKitMgr::instance();
    } catch (const std::bad_alloc&) {
      lacked = true;
    }
    // Another one without a map is told of as ever.
    const LogCapture capture;
    const auto none = noMap();
    const CQOVDebugKitMgr other;
    return lacked && none.hasFailed() && capture.lines() == 1;
  }));
}

TEST_F(OutOfMemory, OfTheProcessesRegistryIsNoAffairOfAGuard) {
  EXPECT_TRUE(qov::test::holdsInChild([] {
    // Of an earlier test.
    ACE_Unmanaged_Singleton<CQOVDebugKitMgr, ACE_Thread_Mutex>::close();
    const auto none = FailingAllocations::ofThoseThatThrow(0);
    { const CQOVDebugKitGuard guard(0, "guarded"); }
    return none.hasFailed();
  }));
}

TEST_F(OutOfMemory, LeavesARegistryWithoutAMapThatCanBeEmptiedAndDeleted) {
  EXPECT_TRUE(qov::test::holdsInChild([] {
    using Singleton = ACE_Unmanaged_Singleton<CQOVDebugKitMgr, ACE_Thread_Mutex>;
    // Of an earlier test.
    Singleton::close();
    const LogCapture capture;
    {
      const auto none = noMap();
      CQOVDebugKitMgr::instance();
      if (!none.hasFailed()) {
        return false;
      }
    }
    CQOVDebugKit kit("KIT", 300);
    const bool isEmpty = CQOVDebugKitMgr::instance()->find(0) == nullptr &&
                         CQOVDebugKitMgr::instance()->add(&kit) == 0 &&
                         CQOVDebugKitMgr::instance()->remove(300) == nullptr;
    CQOVDebugKitMgr::close();
    Singleton::close();
    return isEmpty && CQOVDebugKitMgr::instance()->find(0) != nullptr;
  }));
}

TEST_F(OutOfMemory, OfTheProcessesRegistryItselfIsTheCallersWhileRecordsAreLost) {
  EXPECT_TRUE(qov::test::holdsInChild([] {
    // Of an earlier test.
    using Singleton = ACE_Unmanaged_Singleton<CQOVDebugKitMgr, ACE_Thread_Mutex>;
    Singleton::close();
    const auto none = FailingAllocations::ofObjectsThatGiveNull(sizeof(Singleton));
    { const CQOVDebugKitGuard guard(0, "guarded"); }
    try {
      CQOVDebugKitMgr::instance();
      return false;
    } catch (const std::bad_alloc&) {
      return none.hasFailed();
    }
  }));
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

/// Has a child try `attempt` with that many allocations. Then it finds `isWell` true of what the
/// attempt has given, or it was aborted. True once no allocation more was wanted.
template <class Attempt, class IsWell>
bool takesNoMoreThan(int granted, Attempt attempt, IsWell isWell) {
  constexpr int kComplete = 2;
  const int status = qov::test::endOfChild([&] {
    int result = 0;
    bool failed = false;
    {
      const auto noMore = FailingAllocations::ofThoseThatThrow(granted);
      result = attempt();
      failed = noMore.hasFailed();
    }
    const bool well = isWell(result);
    if (well && !failed) {
      ::_exit(kComplete);
    }
    return well;
  });
  if (WIFSIGNALED(status)) {
    EXPECT_EQ(WTERMSIG(status), SIGABRT) << granted;
    return false;
  }
  EXPECT_NE(WEXITSTATUS(status), 1) << granted;
  return WEXITSTATUS(status) == kComplete;
}

TEST_F(OutOfMemory, LeavesLoggingAsItWasWhenSettingsCannotBeApplied) {
  CLogging_Cfg_Param next = settings("next.log");
  next.logFileMaxSize_ = 1;
  strategy_.initLogStrategy(settings("former.log"));
  bool complete = false;
  for (int granted = 0; !complete; ++granted) {
    qov::test::writeFile(next.logFile_, std::string(2000, 'x'));
    const std::string message = "after " + std::to_string(granted);
    complete = takesNoMoreThan(
        granted,
        [&] {
          errno = 0;
          return strategy_.initLogStrategy(next) == -1 && errno == ENOMEM ? -1 : 0;
        },
        [&](int result) {
          kit_.error(1, "f", 2, message);
          const std::string file = result == -1 ? "former.log" : "next.log";
          return reactorTimers() == 1 &&
                 testing::Value(logged(file), EndsWith("] " + message + "\n"));
        });
  }
  EXPECT_THAT(logged("former.log"), HasSubstr("] after 0\n"));
}

TEST_F(OutOfMemory, IsNoExceptionOfTheReadingOfSettings) {
  ProcessRoot::configure(
      "SendTerminal=0\nChkInterval=0\nLogFileMaxSize=x\nLogFileMaxCnt=1\nLogLevel=2\n");
  const std::string tooLong = directory_.file(std::string(300, 'n'));
  bool complete = false;
  for (int granted = 0; !complete; ++granted) {
    complete = takesNoMoreThan(
        granted,
        [&]() noexcept {
          try {
            return strategy_.reloadLogStrategy(nullptr, tooLong.c_str());
          } catch (const std::bad_alloc&) {
            return 1;
          }
        },
        [](int result) { return result != 1; });
  }
}

TEST_F(OutOfMemory, OfAReloadIsToldInTheLogAsItWas) {
  ProcessRoot::configure(
      "SendTerminal=0\nChkInterval=600\nLogFileMaxSize=1\nLogFileMaxCnt=1\nLogLevel=2\n");
  constexpr int kComplete = 2;
  bool isOver = false;
  for (int granted = 0; !isOver; ++granted) {
    const std::string file = std::to_string(granted) + ".log";
    const int status = qov::test::endOfChild([&]() noexcept {
      strategy_.initLogStrategy(settings(file));
      const std::string next = directory_.file("next.log");
      const auto one = FailingAllocations::ofThoseThatThrow(granted, 1);
      errno = 0;
      const int result = strategy_.reloadLogStrategy(nullptr, next.c_str());
      if (!one.hasFailed()) {
        ::_exit(kComplete);
      }
      return result != -1 || errno != ENOMEM ||
             testing::Value(logged(file), HasSubstr("; the log stays as it is\n"));
    });
    // Of what is too late to refuse, a missing piece of memory ends the process.
    isOver = WIFEXITED(status) && WEXITSTATUS(status) == kComplete;
    EXPECT_FALSE(WIFEXITED(status) && WEXITSTATUS(status) == 1) << granted;
  }
}

TEST_F(OutOfMemory, OfAReloadIsToldWhereACEGivesNothing) {
  ProcessRoot::configure(
      "SendTerminal=0\nChkInterval=600\nLogFileMaxSize=1\nLogFileMaxCnt=1\nLogLevel=2\n");
  // It makes the kit of such records, once for the process.
  strategy_.reloadLogStrategy(nullptr, directory_.file("x.log").c_str());
  {
    const auto none = FailingAllocations::ofObjectsThatGiveNull(sizeof(ACE_Ini_ImpExp));
    EXPECT_EQ(strategy_.reloadLogStrategy(nullptr, directory_.file("next.log").c_str()), -1);
    EXPECT_TRUE(none.hasFailed());
  }
  EXPECT_THAT(logged("x.log"),
              EndsWith("] Failed to configure the log: Cannot allocate memory; the log stays as it "
                       "is\n"));
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

TEST_F(OutOfMemory, RefusesSettingsWhoseFileNobodyWouldCheck) {
  strategy_.initLogStrategy(settings("first.log"));
  CLogging_Cfg_Param param = settings("second.log");
  param.chkInterval_ = 3600;
  errno = 0;
  int result = 0;
  {
    const auto noTimer =
        FailingAllocations::ofObjectsThatGiveNull(sizeof(ACE_Timer_Node_T<ACE_Event_Handler*>));
    result = strategy_.initLogStrategy(param);
  }
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(result, -1);
  EXPECT_FALSE(fs::exists(directory_.file("second.log")));
  strategy_.initLogStrategy(param);  // -1 where files cannot be given away
  EXPECT_TRUE(fs::exists(directory_.file("second.log")));
  EXPECT_EQ(reactorTimers(), 1);
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

TEST_F(OutOfMemory, CostsNoRecordWithAllOptionalKeysOn) {
  const std::string five =
      "SendTerminal=0\nChkInterval=0\nLogFileMaxSize=0\nLogFileMaxCnt=3\nLogLevel=2\n";
  ProcessRoot::configure(five + "LogFold=1\nLogJson=1\nLogEscape=1\n");
  strategy_.initLogStrategy(nullptr, directory_.file("x.log").c_str());
  bool needsNone = false;
  for (int attempt = 0; attempt < 100 && !needsNone; ++attempt) {
    kit_.error(1, "f", 2, "the second's first, which prints the time");
    const FailingAllocations none(0);
    kit_.error(1, "f", 2, "two\nlines");
    kit_.error(1, "f", 2, "two\nlines");
    *LogStateKeeper::log().msg_ostream() << "foreign\n";
    qov::tellAllCounts();
    needsNone = !none.hasFailed();
  }
  EXPECT_TRUE(needsNone);
  EXPECT_THAT(logged("x.log"), EndsWith("1 more of record 1 within a second: two\\nlines\"}\n"));
  ProcessRoot::configure(five);
  strategy_.initLogStrategy(nullptr, directory_.file("x.log").c_str());
}

TEST_F(OutOfMemory, CostsOfWhatIsInsertedOnlyTheTextThatNeedsIt) {
  const std::string five =
      "SendTerminal=0\nChkInterval=0\nLogFileMaxSize=0\nLogFileMaxCnt=3\nLogLevel=2\n";
  ProcessRoot::configure(five + "LogJson=1\n");
  strategy_.initLogStrategy(nullptr, directory_.file("x.log").c_str());
  const std::string needing = std::string(3000, '\x01') + "\n";
  std::ostream& log = *LogStateKeeper::log().msg_ostream();
  {
    const FailingAllocations none(0);
    log.write(needing.data(), static_cast<std::streamsize>(needing.size()));
    EXPECT_TRUE(none.hasFailed());
  }
  EXPECT_TRUE(log.good());
  log << "foreign\n";
  EXPECT_THAT(logged("x.log"), HasSubstr("records missing here, since the log file could not be "
                                         "written: 1\"}\n"));
  EXPECT_THAT(logged("x.log"), EndsWith("\"message\":\"foreign\"}\n"));
  ProcessRoot::configure(five);
  strategy_.initLogStrategy(nullptr, directory_.file("x.log").c_str());
}

TEST_F(OutOfMemory, OfARotationEndsTheProcessAndLeavesTheLogAsItIs) {
  CLogging_Cfg_Param param = settings("x.log");
  param.logFileMaxSize_ = 0;
  strategy_.initLogStrategy(param);
  kit_.error(1, "f", 2, "first");
  qov::FileStrategy check(1, 2);
  const int status = qov::test::endOfChild([&] {
    const FailingAllocations none(0);
    return check.handle_timeout(ACE_Time_Value::zero, nullptr) == 0;
  });
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT) << status;
  EXPECT_THAT(logged("x.log"), EndsWith("] first\n"));
  check.handle_timeout(ACE_Time_Value::zero, nullptr);
  EXPECT_THAT(logged("x.log.1"), EndsWith("] first\n"));
}

}  // namespace
