#include <ace/Reactor.h>
#include <gmock/gmock.h>
#include <pwd.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "diag/file_strategy.h"
#include "tests/diag/log_in_file.h"
#include "tests/diag/process_root.h"
#include "tests/diag/reactor_timers.h"
#include "tests/support/child.h"
#include "tests/support/counts.h"

namespace {

namespace fs = std::filesystem;
using qov::test::entriesOf;
using qov::test::readFile;
using qov::test::writeFile;
using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr u_long kTrace = 0x002, kDebug = 0x004, kInfo = 0x008, kWarn = 0x020, kError = 0x080;

class LoggingStrategy : public LogInFile {
 protected:
  LoggingStrategy() {
    std::snprintf(param_.logFile_, sizeof(param_.logFile_), "%s", path_.c_str());
  }

  void log(const std::string& message) const { kit_.error(1, "f", 2, message); }
  std::string logged() const { return readFile(path_); }

  static u_long mask() {
    return LogStateKeeper::log().priority_mask(ACE_Log_Msg::PROCESS) &
           (kTrace | kDebug | kInfo | kWarn | kError);
  }

  /// In the order in which the configuration has them.
  static std::vector<int> numbersOf(const CLogging_Cfg_Param& param) {
    return {param.sendTerminal_, param.chkInterval_, param.logFileMaxSize_, param.logFileMaxCnt_,
            param.logLevel_};
  }

  /// What changing the owner of a file that is there comes to.
  static int ownerResult() { return ::geteuid() == 0 && ::getpwnam("daemon") != nullptr ? 0 : -1; }

  CLogging_Cfg_Param param_;
};

TEST_F(LoggingStrategy, HasTheDefaultSettings) {
  const CLogging_Cfg_Param param;
  EXPECT_STREQ(param.logFile_, "/var/log/KRV/NoSetLogFile.log");
  EXPECT_THAT(numbersOf(param), ElementsAre(0, 600, 10240, 3, 2));
}

TEST_F(LoggingStrategy, SendsRecordsToTheFile) {
  EXPECT_EQ(strategy_.initLogStrategy(param_), ownerResult());
  testing::internal::CaptureStderr();
  log("m");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_THAT(logged(), EndsWith("] m\n"));
  EXPECT_TRUE(LogStateKeeper::log().flags() & ACE_Log_Msg::OSTREAM);
}

TEST_F(LoggingStrategy, WritesTheLongestRecordsWhole) {
  strategy_.initLogStrategy(param_);
  const std::string message(65536, 'x');
  log(message);
  EXPECT_THAT(logged(), EndsWith("] " + message + "\n"));
}

TEST_F(LoggingStrategy, GivesTheFileToTheUserDaemonAndTheSameGroupId) {
  if (ownerResult() != 0) {
    GTEST_SKIP() << "only root may give files away";
  }
  for (const int toTerminal : {0, 1}) {
    param_.sendTerminal_ = toTerminal;
    writeFile(path_, "");
    EXPECT_EQ(strategy_.initLogStrategy(param_), 0);
    struct stat status {};
    ASSERT_EQ(::stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, ::getpwnam("daemon")->pw_uid);
    EXPECT_EQ(status.st_gid, ::getpwnam("daemon")->pw_uid);
    fs::remove(path_);
  }
}

TEST_F(LoggingStrategy, SendsRecordsToStandardErrorWithoutALogFile) {
  param_.sendTerminal_ = 1;
  EXPECT_EQ(strategy_.initLogStrategy(param_), -1) << "there is no file to give away";
  testing::internal::CaptureStderr();
  log("m");
  EXPECT_THAT(testing::internal::GetCapturedStderr(), EndsWith("] m\n"));
  EXPECT_FALSE(fs::exists(path_));
  EXPECT_EQ(reactorTimers(), 0);
}

TEST_F(LoggingStrategy, LeavesTheLevelsAloneWhenItSendsToTheTerminal) {
  LogStateKeeper::log().priority_mask(kDebug, ACE_Log_Msg::PROCESS);
  param_.sendTerminal_ = 1;
  strategy_.initLogStrategy(param_);
  EXPECT_EQ(mask(), kDebug);
}

TEST_F(LoggingStrategy, WorksWithoutChecks) {
  for (const int interval : {0, -5}) {
    param_.chkInterval_ = interval;
    EXPECT_EQ(strategy_.initLogStrategy(param_), ownerResult());
    EXPECT_EQ(reactorTimers(), 0);
    log("m");
    EXPECT_THAT(logged(), EndsWith("] m\n"));
  }
}

TEST_F(LoggingStrategy, WorksWithoutASizeLimit) {
  for (const int size : {0, -1}) {
    param_.logFileMaxSize_ = size;
    EXPECT_EQ(strategy_.initLogStrategy(param_), ownerResult());
    log("m");
    EXPECT_EQ(strategy_.initLogStrategy(param_), ownerResult());
    EXPECT_FALSE(fs::exists(path_ + ".1"));
  }
}

TEST_F(LoggingStrategy, UsesStandardErrorUntilTheLogDirectoryIsThere) {
  const std::string later = directory_.file("missing/x.log");
  std::snprintf(param_.logFile_, sizeof(param_.logFile_), "%s", later.c_str());
  EXPECT_EQ(strategy_.initLogStrategy(param_), -1);
  testing::internal::CaptureStderr();
  log("first");
  log("second");
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::AllOf(HasSubstr("] first\n"), EndsWith("] second\n")));
  fs::create_directory(directory_.path() / "missing");
  log("third");
  EXPECT_THAT(readFile(later), HasSubstr("][ERR][QOVPUBLIC]["));
  EXPECT_THAT(readFile(later), HasSubstr("could not be written: 3\n"))
      << "one of them tells that it could not be opened";
  EXPECT_THAT(readFile(later), EndsWith("] third\n"));
  log("fourth");
  EXPECT_EQ(std::count(std::istreambuf_iterator<char>(std::ifstream(later).rdbuf()), {}, '\n'), 3);
}

TEST_F(LoggingStrategy, SaysWhyTheFileCannotBeOpened) {
  const std::string later = directory_.file("missing/x.log");
  std::snprintf(param_.logFile_, sizeof(param_.logFile_), "%s", later.c_str());
  testing::internal::CaptureStderr();
  strategy_.initLogStrategy(param_);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("][ERR][QOVPUBLIC][initLogStrategy,"));
  fs::create_directories(later);
  testing::internal::CaptureStderr();
  strategy_.initLogStrategy(param_);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              EndsWith("] Failed to open the log: " + later +
                       ": Is a directory; records go to standard error\n"));
}

TEST_F(LoggingStrategy, NamesTheDirectoryThatTheLogDoesNotFind) {
  const std::string later = directory_.file("missing/x.log");
  std::snprintf(param_.logFile_, sizeof(param_.logFile_), "%s", later.c_str());
  testing::internal::CaptureStderr();
  strategy_.initLogStrategy(param_);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("] Failed to open the log: " + later + ": there is no directory " +
                        directory_.path().string() + "/missing/;"));
}

TEST_F(LoggingStrategy, GivesAFileThatComesLaterToTheUserDaemonToo) {
  if (ownerResult() != 0) {
    GTEST_SKIP() << "only root may give files away";
  }
  const std::string later = directory_.file("missing/x.log");
  std::snprintf(param_.logFile_, sizeof(param_.logFile_), "%s", later.c_str());
  strategy_.initLogStrategy(param_);
  fs::create_directory(directory_.path() / "missing");
  log("m");
  struct stat status {};
  ASSERT_EQ(::stat(later.c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, ::getpwnam("daemon")->pw_uid);
}

TEST_F(LoggingStrategy, GoesOnWithTheFileWhenTheDiskHasRoomAgain) {
  strategy_.initLogStrategy(param_);
  rlimit before{};
  ::getrlimit(RLIMIT_FSIZE, &before);
  auto* const handler = ::signal(SIGXFSZ, SIG_IGN);
  const rlimit full{10, before.rlim_max};
  ::setrlimit(RLIMIT_FSIZE, &full);
  kit_.error(1, "f", 2, "lost");
  ACE_ERROR((LM_ERROR, "lost straight to ACE\n"));
  ::setrlimit(RLIMIT_FSIZE, &before);
  ::signal(SIGXFSZ, handler);
  ACE_ERROR((LM_ERROR, "kept\n"));
  EXPECT_THAT(logged(), EndsWith("could not be written: 2\nkept\n"));
  EXPECT_THAT(logged(), StartsWith("[")) << "nothing torn";
}

TEST_F(LoggingStrategy, RotatesAFileThatIsTooLargeAtOnce) {
  param_.logFileMaxSize_ = 1;
  writeFile(path_, std::string(1024, 'x'));
  strategy_.initLogStrategy(param_);
  EXPECT_FALSE(fs::exists(path_ + ".1"));
  writeFile(path_, std::string(1025, 'x'));
  strategy_.initLogStrategy(param_);
  EXPECT_EQ(readFile(path_ + ".1"), std::string(1025, 'x'));
  EXPECT_EQ(logged(), "");
}

TEST_F(LoggingStrategy, SaysOnceWhyAFileThatIsTooLargeIsNotRotated) {
  strategy_.initLogStrategy(param_);
  const std::string line =
      "] Failed to rotate the log: " + path_ + ": Is a directory; it grows on\n";
  qov::FileStrategy check(1, 1);
  const auto look = [&] {
    check.handle_timeout(ACE_Time_Value::zero, nullptr);
    return logged();
  };
  const auto occupy = [this] { writeFile(fs::path(path_ + ".1") / "occupied", ""); };
  occupy();
  log("kept");
  const std::string told = look();
  EXPECT_THAT(told, AllOf(HasSubstr("] kept\n"), HasSubstr("][65772]"), EndsWith(line)));
  EXPECT_EQ(look(), told) << "the same again";
  fs::remove_all(path_ + ".1");
  EXPECT_EQ(look(), "");
  EXPECT_EQ(readFile(path_ + ".1"), told);
  fs::remove(path_ + ".1");
  occupy();
  log("next");
  EXPECT_THAT(look(), AllOf(HasSubstr("] next\n"), EndsWith(line)));
}

TEST_F(LoggingStrategy, RotatesWhileTheReactorRuns) {
  param_.logFileMaxSize_ = 1;
  param_.chkInterval_ = 1;
  strategy_.initLogStrategy(param_);
  log(std::string(2000, 'x'));
  ACE_Time_Value limit(30);
  while (!fs::exists(path_ + ".1") && limit > ACE_Time_Value::zero) {
    ACE_Reactor::instance()->handle_events(limit);
  }
  log("next");
  EXPECT_THAT(readFile(path_ + ".1"), EndsWith("xxx\n"));
  EXPECT_THAT(logged(), EndsWith("] next\n"));
}

TEST_F(LoggingStrategy, KeepsTheSequenceOfRotatedFilesWhenItIsAppliedAgain) {
  param_.logFileMaxSize_ = 1;
  strategy_.initLogStrategy(param_);
  for (const char letter : {'a', 'b', 'c'}) {
    log(std::string(2000, letter));
    strategy_.initLogStrategy(param_);
  }
  EXPECT_THAT(readFile(path_ + ".1"), EndsWith("ccc\n"));
  EXPECT_THAT(readFile(path_ + ".2"), EndsWith("bbb\n"));
  EXPECT_FALSE(fs::exists(path_ + ".3")) << "three files with the current one";
}

TEST_F(LoggingStrategy, RemovesTheFilesAboveALowerCount) {
  for (const char* const number : {".1", ".2", ".3"}) {
    writeFile(path_ + number, "");
  }
  param_.logFileMaxCnt_ = 4;
  strategy_.initLogStrategy(param_);
  EXPECT_TRUE(fs::exists(path_ + ".3"));
  param_.logFileMaxCnt_ = 2;
  strategy_.initLogStrategy(param_);
  EXPECT_TRUE(fs::exists(path_ + ".1"));
  EXPECT_FALSE(fs::exists(path_ + ".2"));
  EXPECT_FALSE(fs::exists(path_ + ".3"));
  param_.logFileMaxCnt_ = 0;
  strategy_.initLogStrategy(param_);
  EXPECT_TRUE(fs::exists(path_ + ".1")) << "nobody can have meant that";
  param_.logFileMaxCnt_ = 1;
  strategy_.initLogStrategy(param_);
  EXPECT_FALSE(fs::exists(path_ + ".1"));
}

TEST_F(LoggingStrategy, CreatesNoFileThatOthersCanWriteTo) {
  const mode_t mask = ::umask(0);
  param_.logFileMaxSize_ = 1;
  strategy_.initLogStrategy(param_);
  log(std::string(2000, 'x'));
  strategy_.initLogStrategy(param_);
  ::umask(mask);
  for (const std::string& file : {path_, path_ + ".1"}) {
    struct stat status {};
    ASSERT_EQ(::stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 022U, 0U) << file;
  }
}

TEST_F(LoggingStrategy, HasOneTimerHoweverOftenItIsApplied) {
  for (int round = 0; round < 1000; ++round) {
    strategy_.initLogStrategy(param_);
  }
  EXPECT_EQ(reactorTimers(), 1);
  param_.chkInterval_ = 0;
  strategy_.initLogStrategy(param_);
  EXPECT_EQ(reactorTimers(), 0);
}

TEST_F(LoggingStrategy, LeavesNoTimerBehind) {
  auto strategy = std::make_unique<CQOV_Logging_Strategy>();
  param_.chkInterval_ = 1;
  strategy->initLogStrategy(param_);
  ASSERT_EQ(reactorTimers(), 1);
  strategy.reset();
  EXPECT_EQ(reactorTimers(), 0);
}

TEST_F(LoggingStrategy, GoesOnWritingAfterItsDestruction) {
  std::make_unique<CQOV_Logging_Strategy>()->initLogStrategy(param_);
  log("late");
  EXPECT_THAT(logged(), EndsWith("] late\n"));
}

TEST_F(LoggingStrategy, KeepsNoFurtherDescriptors) {
  param_.logFileMaxSize_ = 1;
  strategy_.initLogStrategy(param_);
  const auto before = entriesOf("/proc/self/fd");
  for (int round = 0; round < 100; ++round) {
    log(std::string(2000, 'x'));
    strategy_.initLogStrategy(param_);
  }
  EXPECT_EQ(entriesOf("/proc/self/fd"), before);
}

/// The number under which this process has `file` open; -1: not at all.
int descriptorOf(const fs::path& file) {
  for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
    std::error_code gone;  // the listing's own
    if (fs::read_symlink(entry.path(), gone) == file) {
      return std::stoi(entry.path().filename().string());
    }
  }
  return -1;
}

TEST_F(LoggingStrategy, SharesNoPositionInTheFileWithAChild) {
  strategy_.initLogStrategy(param_);
  log("parent");
  const int descriptor = descriptorOf(path_);
  const off_t position = ::lseek(descriptor, 0, SEEK_CUR);
  ASSERT_GT(position, 0);
  EXPECT_TRUE(qov::test::holdsInChild([this] {
    log("child");
    return true;
  }));
  EXPECT_THAT(logged(), EndsWith("] child\n"));
  EXPECT_EQ(::lseek(descriptor, 0, SEEK_CUR), position)
      << "who shares it may cut off the other's record with a torn one of its own";
}

TEST_F(LoggingStrategy, SwitchesBetweenFileAndTerminal) {
  strategy_.initLogStrategy(param_);
  log("one");
  param_.sendTerminal_ = 1;
  strategy_.initLogStrategy(param_);
  EXPECT_EQ(reactorTimers(), 0);
  testing::internal::CaptureStderr();
  log("two");
  EXPECT_THAT(testing::internal::GetCapturedStderr(), EndsWith("] two\n"));
  param_.sendTerminal_ = 0;
  strategy_.initLogStrategy(param_);
  EXPECT_EQ(reactorTimers(), 1);
  testing::internal::CaptureStderr();
  log("three");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_THAT(logged(), testing::AllOf(HasSubstr("] one\n"), EndsWith("] three\n")));
  EXPECT_THAT(logged(), Not(HasSubstr("] two\n")));
}

TEST_F(LoggingStrategy, GoesToTheTerminalWhenSomeoneHasTakenTheBackendAway) {
  strategy_.initLogStrategy(param_);
  ACE_Log_Msg_Backend* const backend = ACE_Log_Msg::msg_backend(nullptr);
  param_.sendTerminal_ = 1;
  strategy_.initLogStrategy(param_);
  testing::internal::CaptureStderr();
  log("m");
  EXPECT_THAT(testing::internal::GetCapturedStderr(), EndsWith("] m\n"));
  ACE_Log_Msg::msg_backend(backend);
}

TEST_F(LoggingStrategy, OutlivesTheProcessesReactorWithoutChecksToo) {
  for (const int interval : {-5, 0, 600}) {
    auto strategy = std::make_unique<CQOV_Logging_Strategy>();
    param_.chkInterval_ = interval;
    strategy->initLogStrategy(param_);
    ACE_Reactor::close_singleton();
    strategy.reset();
    EXPECT_EQ(reactorTimers(), 0);
  }
}

TEST_F(LoggingStrategy, SetsTheProcessesLevels) {
  const u_long fromTrace = kTrace | kDebug | kInfo | kWarn | kError;
  const u_long fromInfo = kInfo | kWarn | kError;
  const std::vector<std::pair<int, u_long>> masks = {
      {-1, fromTrace}, {0, fromTrace}, {1, fromTrace & ~kTrace},
      {2, fromInfo},   {3, fromInfo},  {4, kWarn | kError},
      {5, kError},     {9, kError}};
  for (const auto& [level, expected] : masks) {
    param_.logLevel_ = level;
    strategy_.initLogStrategy(param_);
    EXPECT_EQ(mask(), expected) << "level " << level;
    EXPECT_EQ(LogStateKeeper::log().priority_mask(ACE_Log_Msg::PROCESS) & LM_CRITICAL, 0U);
  }
}

TEST_F(LoggingStrategy, CutsALogFileNameTo255Characters) {
  CLogging_Cfg_Param param;
  const std::string name = directory_.path().string() + "/" + std::string(300, 'x');
  ProcessRoot::configure(
      "SendTerminal=0\nChkInterval=0\nLogFileMaxSize=0\nLogFileMaxCnt=3\nLogLevel=2\n");
  EXPECT_EQ(strategy_.initLogStrategy(nullptr, name.c_str()), ownerResult());
  log("m");
  EXPECT_THAT(readFile(name.substr(0, 255)), EndsWith("] m\n"));
}

class LogConfiguration : public LoggingStrategy {
 protected:
  int read() { return strategy_.read_log_config("/not/looked/at", param_); }
};

TEST_F(LogConfiguration, ReadsTheFiveKeysOfTheProcessesOwnFile) {
  ProcessRoot::configure(
      "SendTerminal=1\nChkInterval=2\nLogFileMaxSize=3\nLogFileMaxCnt=4\nLogLevel=5\n");
  EXPECT_EQ(read(), 0);
  EXPECT_THAT(numbersOf(param_), ElementsAre(1, 2, 3, 4, 5));
}

TEST_F(LogConfiguration, StopsAtTheFirstMissingKey) {
  ProcessRoot::configure("SendTerminal=1\nChkInterval=2\nLogFileMaxSize=3\nLogLevel=5\n");
  EXPECT_EQ(read(), -1);
  EXPECT_THAT(numbersOf(param_), ElementsAre(1, 2, 3, 3, 2));
}

TEST_F(LogConfiguration, NeedsEachOfItsKeys) {
  const std::vector<std::string> keys = {"SendTerminal", "ChkInterval", "LogFileMaxSize",
                                         "LogFileMaxCnt", "LogLevel"};
  for (const std::string& missing : keys) {
    std::string section;
    for (const std::string& key : keys) {
      section += key == missing ? "" : key + "=1\n";
    }
    ProcessRoot::configure(section);
    EXPECT_EQ(read(), -1) << missing;
  }
}

TEST_F(LogConfiguration, FailsWithoutItsFile) {
  ProcessRoot::configure("SendTerminal=1\n");
  QOV_Utility::getProcessCfgFileName();  // the process has read it; now it goes
  fs::remove(ProcessRoot::cfgFile());
  EXPECT_EQ(read(), -1);
}

TEST_F(LogConfiguration, SendsRecordsToTheTerminalIfItSaysSo) {
  ProcessRoot::configure(
      "SendTerminal=1\nChkInterval=600\nLogFileMaxSize=10\nLogFileMaxCnt=3\nLogLevel=2\n");
  EXPECT_EQ(strategy_.initLogStrategy(nullptr, path_.c_str()), -1);
  EXPECT_FALSE(fs::exists(path_));
  testing::internal::CaptureStderr();
  log("m");
  EXPECT_THAT(testing::internal::GetCapturedStderr(), EndsWith("] m\n"));
}

TEST_F(LogConfiguration, FailsWithoutItsSection) {
  writeFile(ProcessRoot::cfgFile(), "[QOV_GLOBAL]\nPROC_PID=1\n");
  EXPECT_EQ(read(), -1);
}

TEST_F(LogConfiguration, TakesWhatIsNoNumberForZero) {
  ProcessRoot::configure(
      "SendTerminal=yes\nChkInterval= 7x\nLogFileMaxSize=0x10\nLogFileMaxCnt=-2\nLogLevel=-9\n");
  EXPECT_EQ(read(), 0);
  EXPECT_THAT(numbersOf(param_), ElementsAre(0, 7, 0, -2, -9));
}

TEST_F(LogConfiguration, TakesNumbersOutOfRangeForTheNearest) {
  ProcessRoot::configure(
      "SendTerminal=4294967296\nChkInterval=99999999999999999999\n"
      "LogFileMaxSize=-4294967296\nLogFileMaxCnt=2147483647\nLogLevel=4294967296\n");
  EXPECT_EQ(read(), 0);
  EXPECT_THAT(numbersOf(param_), ElementsAre(INT_MAX, INT_MAX, INT_MIN, INT_MAX, 5));
}

TEST_F(LogConfiguration, IsAppliedToTheGivenFile) {
  ProcessRoot::configure(
      "SendTerminal=0\nChkInterval=600\nLogFileMaxSize=10\nLogFileMaxCnt=3\nLogLevel=9\n");
  EXPECT_EQ(strategy_.initLogStrategy("/not/looked/at", path_.c_str()), ownerResult());
  kit_.warn(1, "f", 2, "m");
  EXPECT_EQ(logged(), "");
  log("m");
  EXPECT_THAT(logged(), EndsWith("] m\n"));
}

TEST_F(LogConfiguration, LeavesLoggingAsItWasWhenAKeyIsMissing) {
  LogCapture capture;
  ProcessRoot::configure("SendTerminal=1\nChkInterval=2\nLogFileMaxSize=3\nLogLevel=5\n");
  EXPECT_EQ(strategy_.initLogStrategy(nullptr, path_.c_str()), -1);
  kit_.debug(1, "f", 2, "m");
  EXPECT_THAT(capture.text(), EndsWith("] m\n"));
  EXPECT_FALSE(fs::exists(path_));
}

TEST_F(LogConfiguration, NamesTheKeyThatIsMissing) {
  const LogCapture capture;
  ProcessRoot::configure("SendTerminal=1\nChkInterval=2\nLogFileMaxSize=3\nLogLevel=5\n");
  strategy_.initLogStrategy(nullptr, path_.c_str());
  EXPECT_THAT(capture.text(), HasSubstr("][WARN][QOVPUBLIC]["));
  EXPECT_THAT(capture.text(),
              EndsWith("] Failed to configure the log: " + ProcessRoot::cfgFile() +
                       ": LOG_CFG/LogFileMaxCnt: there is no such key; the log stays as it is\n"));
}

TEST_F(LogConfiguration, NamesTheSectionThatIsMissing) {
  const LogCapture capture;
  ProcessRoot::configure("");
  writeFile(ProcessRoot::cfgFile(), "[QOV_GLOBAL]\nPROC_PID=1\n");
  strategy_.initLogStrategy(nullptr, path_.c_str());
  EXPECT_THAT(capture.text(),
              EndsWith(ProcessRoot::cfgFile() +
                       ": LOG_CFG: there is no such section; the log stays as it is\n"));
}

TEST_F(LogConfiguration, NamesTheFaultyLine) {
  const LogCapture capture;
  ProcessRoot::configure("");
  QOV_Utility::getProcPID();
  ProcessRoot::configure("no equals sign\n");
  strategy_.initLogStrategy(nullptr, path_.c_str());
  EXPECT_THAT(
      capture.text(),
      HasSubstr("Failed to read the configuration: " + ProcessRoot::cfgFile() + ":4: neither"));
}

TEST_F(LogConfiguration, WarnsOfAPathThatIsCut) {
  const LogCapture capture;
  ProcessRoot::configure(
      "SendTerminal=1\nChkInterval=2\nLogFileMaxSize=3\nLogFileMaxCnt=4\nLogLevel=0\n");
  const std::string longest = "/" + std::string(254, 'x');
  strategy_.initLogStrategy(nullptr, longest.c_str());
  EXPECT_THAT(capture.text(), Not(HasSubstr("too long")));
  testing::internal::CaptureStderr();
  strategy_.initLogStrategy(nullptr, (longest + "y").c_str());
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("Failed to take the whole path of the log: " + longest +
                        "y: it is too long; records go to " + longest + "\n"));
}

}  // namespace
