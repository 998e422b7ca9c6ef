#include <ace/Configuration.h>
#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Callback.h>
#include <ace/Log_Record.h>
#include <ace/Object_Manager.h>
#include <gtest/gtest.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_utility.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/child.h"
#include "tests/support/failing_allocations.h"
#include "tests/support/files.h"

using qov::test::FailingAllocations;
using qov::test::holdsInChild;
using qov::test::TemporaryDirectory;
using qov::test::writeFile;

namespace {

// A root directory of its own in "QOV_ROOT", and this program's configuration file below it.
class ProcInfo : public ::testing::Test {
 protected:
  ProcInfo() {
    ::setenv("QOV_ROOT", root_.path().c_str(), 1);
    CProcInfo::getProcName(name_);
    cfgFile_ = root_.file("conf/" + name_ + "/" + name_ + ".cfg");
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  }
  ~ProcInfo() override { ::unsetenv("QOV_ROOT"); }

  void configure(const std::string& content) { writeFile(cfgFile_, content); }

  static std::string whatFails() {
    try {
      const CProcInfo info;
    } catch (const CQOV_Exception& exception) {
      return exception.what();
    }
    return "nothing fails";
  }

  TemporaryDirectory root_;
  std::string name_;
  std::string cfgFile_;
};

class ProcInfoDeathTest : public ProcInfo {
 protected:
  // Ends a death test's process: with 0 if `expected`.
  [[noreturn]] void leave(bool expected) {
    root_.remove();
    std::exit(expected ? 0 : 1);
  }
};

// Does what a log sink of the system does: asks for the process's name with every record.
class SinkThatAsksForTheName : public ACE_Log_Msg_Callback {
 public:
  SinkThatAsksForTheName() {
    ACE_LOG_MSG->msg_callback(this);
    ACE_LOG_MSG->set_flags(ACE_Log_Msg::MSG_CALLBACK);
    ACE_LOG_MSG->clr_flags(ACE_Log_Msg::STDERR);
  }
  ~SinkThatAsksForTheName() override {
    ACE_LOG_MSG->msg_callback(nullptr);
    ACE_LOG_MSG->clr_flags(ACE_Log_Msg::MSG_CALLBACK);
    ACE_LOG_MSG->set_flags(ACE_Log_Msg::STDERR);
  }

  void log(ACE_Log_Record&) override {
    ++records;
    try {
      QOV_Utility::getProcessName();
    } catch (const CQOV_Exception&) {
      ++unanswered;
    }
  }

  int records = 0;
  int unanswered = 0;
};

const auto leftWithZero = ::testing::ExitedWithCode(0);

std::string caughtFrom(const std::function<void()>& call) {
  try {
    call();
  } catch (const CQOV_Exception& exception) {
    return exception.what();
  }
  return "";
}

// Ends a process that hangs by a signal. ACE blocks them while it logs, so that a thread of its own
// has to take it.
void endAfterAMinute() {
  std::thread([] { ::pause(); }).detach();
  ::alarm(60);
}

// What ACE takes for the first values of a configuration. It logs when there is no memory for it.
constexpr std::size_t kFirstPoolOfAce = 4096;

constexpr const char* kGood = "[QOV_GLOBAL]\nPROC_PID=42abc\n";

}  // namespace

TEST_F(ProcInfo, DerivesEverythingFromTheRootAndTheName) {
  configure(kGood);
  const CProcInfo info;
  const std::string root = root_.path().string();
  EXPECT_EQ(info.procName(), name_);
  EXPECT_EQ(info.cfgPath(), root + "/conf/" + name_ + "/");
  EXPECT_EQ(info.cfgFileName(), root + "/conf/" + name_ + "/" + name_ + ".cfg");
  EXPECT_EQ(info.logPath(), root + "/log");
  EXPECT_EQ(info.logFileName(), root + "/log/" + name_ + ".log");
  EXPECT_EQ(info.pid(), 42u);
}

TEST_F(ProcInfo, TakesThePidAsTheConversionReadsIt) {
  configure("[OTHER]\nPROC_PID=1\n[QOV_GLOBAL]\nproc_pid = \" 7\"\n");
  EXPECT_EQ(CProcInfo().pid(), 7u);
  configure("[QOV_GLOBAL]\nPROC_PID=none\n");
  EXPECT_EQ(CProcInfo().pid(), 0u);
}

TEST_F(ProcInfo, KeepsADoubledSlashOfTheRoot) {
  ::setenv("QOV_ROOT", (root_.path().string() + "/").c_str(), 1);
  configure(kGood);
  EXPECT_EQ(CProcInfo().cfgPath(), root_.path().string() + "//conf/" + name_ + "/");
}

TEST_F(ProcInfo, LivesInTheFileSystemsRootWithoutARootAndNamelessWithoutAnExecutable) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root can change the file system's root";
  }
  writeFile(root_.file("conf/.cfg"), kGood);
  EXPECT_TRUE(holdsInChild([this] {
    // No /proc in there, so that the executable cannot be found out.
    bool expected = ::chroot(root_.path().c_str()) == 0 && ::chdir("/") == 0;
    ::unsetenv("QOV_ROOT");
    const std::string failure = caughtFrom([&expected] {
      const CProcInfo info;
      expected = expected && info.procName().empty() && info.cfgPath() == "/conf//" &&
                 info.cfgFileName() == "/conf//.cfg" && info.logPath() == "/log" &&
                 info.logFileName() == "/log/.log" && info.pid() == 42;
    });
    return expected && failure.empty();
  }));
}

TEST_F(ProcInfo, SaysThatThereIsNoMemoryForTheConfiguration) {
  configure(kGood);
  const auto failing = FailingAllocations::ofObjectsThatGiveNull(sizeof(HEAP_ALLOCATOR));
  EXPECT_EQ(whatFails(), "CQOV_Exception: can't make config");
  EXPECT_TRUE(failing.hasFailed());
}

TEST_F(ProcInfo, SaysThatTheFileIsMissing) {
  EXPECT_EQ(whatFails(), "CQOV_Exception: can't open proc config file");
}

TEST_F(ProcInfo, SaysThatTheFileIsNoIniFile) {
  for (const char* broken :
       {"[QOV_GLOBAL\nPROC_PID=1\n", "PROC_PID=1\n", "[QOV_GLOBAL]\nPROC_PID=1\nno equals sign\n",
        "[QOV_GLOBAL]\nPROC_PID=1\n=no key\n"}) {
    configure(broken);
    EXPECT_EQ(whatFails(), "CQOV_Exception: can't open proc config file") << broken;
  }
}

TEST_F(ProcInfo, SaysThatTheSectionIsMissing) {
  for (const char* content : {"", "[OTHER]\nPROC_PID=1\n", "[qov_global]\nPROC_PID=1\n"}) {
    configure(content);
    EXPECT_EQ(whatFails(), "CQOV_Exception: can't open section name is PROC!") << content;
  }
}

TEST_F(ProcInfo, SaysThatTheKeyIsMissing) {
  configure("[QOV_GLOBAL]\nOTHER=1\n");
  EXPECT_EQ(whatFails(), "CQOV_Exception: can't get PROC_PID from section name is PROC!");
}

TEST_F(ProcInfo, LogsNothingWhateverIsWrong) {
  SinkThatAsksForTheName sink;
  for (const char* content : {"", "[QOV_GLOBAL\n", "[QOV_GLOBAL]\n", "[A]\n=\n", "[A]\nk[0]=1\n"}) {
    configure(content);
    EXPECT_NE(whatFails(), "nothing fails") << content;
  }
  EXPECT_EQ(sink.records, 0);
}

TEST_F(ProcInfoDeathTest, ItsFirstUseDoesNotWaitForItselfInALogSink) {
  EXPECT_EXIT(
      {
        SinkThatAsksForTheName sink;
        const bool thrown = !caughtFrom([] { QOV_Utility::getProcPID(); }).empty();
        ACE_ERROR((LM_ERROR, "a record after the failure\n"));
        leave(thrown && sink.records == 1 && sink.unanswered == 1);
      },
      leftWithZero, "");
}

TEST_F(ProcInfoDeathTest, ItsFirstUseDoesNotWaitForItselfWhenAceLogsMeanwhile) {
  EXPECT_EXIT(
      {
        endAfterAMinute();
        configure(kGood);
        SinkThatAsksForTheName sink;
        std::string failure;
        {
          const auto failing = FailingAllocations::ofArraysThatGiveNull(kFirstPoolOfAce);
          failure = caughtFrom([] { QOV_Utility::getProcPID(); });
        }
        const bool asked = sink.records > 0 && sink.unanswered == sink.records;
        leave(failure == "CQOV_Exception: can't make config" && asked &&
              QOV_Utility::getProcPID() == 42);
      },
      leftWithZero, "");
}

TEST_F(ProcInfoDeathTest, AFailureReachesEveryGetterAndALaterCallTriesAgain) {
  EXPECT_EXIT(
      {
        const std::string missing = "CQOV_Exception: can't open proc config file";
        bool expected = true;
        expected &= caughtFrom([] { QOV_Utility::getProcPID(); }) == missing;
        expected &= caughtFrom([] { QOV_Utility::getProcessName(); }) == missing;
        expected &= caughtFrom([] { QOV_Utility::getProcessCfgPath(); }) == missing;
        expected &= caughtFrom([] { QOV_Utility::getProcessCfgFileName(); }) == missing;
        expected &= caughtFrom([] { QOV_Utility::getProcessLogPath(); }) == missing;
        expected &= caughtFrom([] { QOV_Utility::getProcessLogFileName(); }) == missing;
        configure(kGood);
        std::thread([&expected] { expected &= QOV_Utility::getProcPID() == 42; }).join();
        expected &= QOV_Utility::getProcessName() == name_;
        leave(expected);
      },
      leftWithZero, "");
}

TEST_F(ProcInfoDeathTest, IsComputedOnce) {
  EXPECT_EXIT(
      {
        configure(kGood);
        const std::string& name = QOV_Utility::getProcessName();
        const std::string file = QOV_Utility::getProcessCfgFileName();
        configure("[QOV_GLOBAL]\nPROC_PID=43\n");
        ::setenv("QOV_ROOT", "/elsewhere", 1);
        leave(QOV_Utility::getProcPID() == 42 && QOV_Utility::getProcessCfgFileName() == file &&
              &QOV_Utility::getProcessName() == &name);
      },
      leftWithZero, "");
}

TEST_F(ProcInfoDeathTest, IsStillKnownWhenAceHasEnded) {
  EXPECT_EXIT(
      {
        configure(kGood);
        const std::string* const name = &QOV_Utility::getProcessName();
        configure("[QOV_GLOBAL]\nPROC_PID=43\n");
        ACE_Object_Manager::instance()->fini();
        leave(QOV_Utility::getProcPID() == 42 && &QOV_Utility::getProcessName() == name &&
              *name == name_);
      },
      leftWithZero, "");
}

TEST_F(ProcInfoDeathTest, MayBeUsedFirstByManyThreadsAtOnce) {
  EXPECT_EXIT(
      {
        configure(kGood);
        std::vector<u_int> pids(8);
        std::vector<std::thread> threads;
        for (u_int& pid : pids) {
          threads.emplace_back([&pid] { pid = QOV_Utility::getProcPID(); });
        }
        for (std::thread& thread : threads) {
          thread.join();
        }
        leave(pids == std::vector<u_int>(8, 42));
      },
      leftWithZero, "");
}

TEST_F(ProcInfoDeathTest, FailsAndSucceedsWhileOtherThreadsLogThroughAKit) {
  EXPECT_EXIT(
      {
        ACE_LOG_MSG->clr_flags(ACE_Log_Msg::STDERR);  // for every thread of the process
        std::atomic<bool> done{false};
        std::vector<std::thread> loggers;
        for (int i = 0; i < 3; ++i) {
          loggers.emplace_back([&done] {
            CQOVDebugKit kit("ENVTEST", 4711);
            while (!done) {
              kit.error(1, __func__, __LINE__, "the configuration is broken");
            }
          });
        }
        bool expected = true;
        for (int i = 0; i < 100; ++i) {
          configure(i % 2 == 0 ? "[QOV_GLOBAL\n" : "[QOV_GLOBAL]\n");
          expected &= !caughtFrom([] { QOV_Utility::getProcPID(); }).empty();
        }
        configure(kGood);
        expected &= QOV_Utility::getProcPID() == 42;
        done = true;
        for (std::thread& logger : loggers) {
          logger.join();
        }
        leave(expected);
      },
      leftWithZero, "");
}

TEST(RootDirectory, IsTheEnvironmentVariableWithSlashes) {
  ::setenv("QOV_ROOT", "C:\\qov\\", 1);
  EXPECT_EQ(QOV_Utility::getQOVRootEnv(), "C:/qov/");
  ::setenv("QOV_ROOT", "/opt/qov/", 1);
  EXPECT_EQ(QOV_Utility::getQOVRootEnv(), "/opt/qov/") << "read anew, nothing removed";
  ::setenv("QOV_ROOT", "", 1);
  EXPECT_EQ(QOV_Utility::getQOVRootEnv(), "");
  ::unsetenv("QOV_ROOT");
  EXPECT_EQ(QOV_Utility::getQOVRootEnv(), "");
}
