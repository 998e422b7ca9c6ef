#include <ace/Singleton.h>
#include <ace/Thread_Mutex.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qovpub/qov_app.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_logging_strategy.h>
#include <qovpub/qov_module_loader.h>
#include <qovpub/qov_utility.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <memory>
#include <new>

#include "tests/support/agent_root.h"
#include "tests/support/child.h"
#include "tests/support/failing_allocations.h"
#include "tests/support/sanitizers.h"

namespace {

constexpr const char* kNoMemory = "Failed to start the agent: Cannot allocate memory\n";

/// The frame of this very process, which has no modules; what an agent does is in tests/process.
class AppStart : public ::testing::Test {
 protected:
  AppStart() { ::setenv("QOV_ROOT", root.path().c_str(), 1); }
  ~AppStart() override { ::pthread_sigmask(SIG_SETMASK, &former_, nullptr); }

  static std::string processName() {
    std::string name;
    CProcInfo::getProcName(name);
    return name;
  }

  /// Blocks SIGUSR2 and SIGUSR1, as a caller may have done.
  void blockUsr1And2() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR1);
    sigaddset(&set, SIGUSR2);
    ::pthread_sigmask(SIG_SETMASK, &set, &former_);
  }

  static bool blocksExactlyUsr1And2() {
    sigset_t mask;
    ::pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    return sigismember(&mask, SIGUSR1) == 1 && sigismember(&mask, SIGUSR2) == 1 &&
           sigismember(&mask, SIGINT) == 0;
  }

  static int init(CQOVapp& app) {
    char name[] = "agent";
    char option[] = "-n";
    char* argv[] = {name, option, nullptr};
    return app.init(2, argv);
  }

  AgentRoot root{processName()};

 private:
  sigset_t former_ = [] {
    sigset_t mask;
    ::pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    return mask;
  }();
};

// The process reads its configuration once, so the order of these two is that of the file.

TEST_F(AppStart, WithoutAConfigurationThrowsAndGivesBackTheSignalMask) {
  blockUsr1And2();
  CQOVapp app;
  EXPECT_THROW(init(app), CQOV_Exception);
  EXPECT_TRUE(blocksExactlyUsr1And2());
}

TEST_F(AppStart, WithoutModulesFailsAndGivesBackTheSignalMask) {
  root.writeConfig();
  blockUsr1And2();
  struct sigaction before {};
  ::sigaction(SIGINT, nullptr, &before);
  CQOVapp app;
  EXPECT_EQ(init(app), -1);
  EXPECT_TRUE(blocksExactlyUsr1And2());
  struct sigaction after {};
  ::sigaction(SIGINT, nullptr, &after);
  EXPECT_EQ(after.sa_handler, before.sa_handler) << "a failed start registers no handler";
}

TEST_F(AppStart, WithoutMemoryForTheLoggingStrategyFails) {
  root.writeConfig();
  // What a process makes once, some of it of the same size, it makes here.
  {
    CQOVapp first;
    EXPECT_EQ(init(first), -1);
  }
  CQOVapp app;
  const auto failing =
      qov::test::FailingAllocations::ofObjectsThatGiveNull(sizeof(CQOV_Logging_Strategy));
  errno = 0;
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(init(app), -1);
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), kNoMemory);
  EXPECT_TRUE(failing.hasFailed());
}

#if !QOV_TEST_TSAN  // which bears no new threads in a child of several
/// The process has no loader yet.
struct ForgetsLoader : ACE_Singleton<CQOV_Module_Loader, ACE_Thread_Mutex> {
  static void forget() { singleton_ = nullptr; }
};

TEST_F(AppStart, WithoutMemoryForTheLoaderSaysWhy) {
  root.writeConfig();
  {
    CQOVapp first;
    EXPECT_EQ(init(first), -1);
  }
  ::testing::internal::CaptureStderr();
  EXPECT_TRUE(qov::test::holdsInChild([] {
    ForgetsLoader::forget();
    CQOVapp app;
    const auto failing =
        qov::test::FailingAllocations::ofObjectsThatGiveNull(sizeof(ForgetsLoader));
    try {
      init(app);
    } catch (const std::bad_alloc&) {
      return failing.hasFailed();
    }
    return false;
  }));
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), ::testing::EndsWith(kNoMemory));
}

TEST_F(AppStart, WhoseFirstAllocationFailsNamesTheThread) {
  root.writeConfig();
  ::testing::internal::CaptureStderr();
  const int status = qov::test::endOfChild([]() noexcept {
    std::set_terminate(&__gnu_cxx::__verbose_terminate_handler);  // as a process begins
    CQOVapp app;
    const auto failing = qov::test::FailingAllocations::ofThoseThatThrow(0);
    init(app);
    return true;
  });
  EXPECT_TRUE(WIFSIGNALED(status)) << WEXITSTATUS(status);
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              ::testing::ContainsRegex("Failed to go on in thread .+: Cannot allocate memory\n"));
}

TEST_F(AppStart, WhoseMemoryRunsOutSaysWhy) {
  root.writeConfig();
  root.addModule("qovp_that_is_nowhere");
  // What a process makes once it makes here.
  {
    CQOVapp first;
    EXPECT_EQ(init(first), -1);
  }
  constexpr int kComplete = 2;
  bool failed = true;
  for (long count = 0; failed; ++count) {
    ::testing::internal::CaptureStderr();
    // In a child, which is aborted where nobody has a result for missing memory.
    const int status = qov::test::endOfChild([count] {
      CQOVapp app;
      const auto failing = qov::test::FailingAllocations::ofThoseThatThrow(count);
      bool refused = true;
      try {
        refused = init(app) == -1;
      } catch (const std::bad_alloc&) {
      }
      if (refused && !failing.hasFailed()) {
        ::_exit(kComplete);
      }
      return refused;
    });
    const std::string told = ::testing::internal::GetCapturedStderr();
    EXPECT_NE(told, "") << "after " << count << ", status " << status;
    failed = !WIFEXITED(status) || WEXITSTATUS(status) != kComplete;
    if (WIFSIGNALED(status)) {
      EXPECT_EQ(WTERMSIG(status), SIGABRT) << "after " << count;
    } else {
      EXPECT_NE(WEXITSTATUS(status), 1) << "after " << count;
    }
  }
}
#endif

TEST_F(AppStart, SurvivesAnEmptyCommandLine) {
  root.writeConfig();
  CQOVapp::bDeaemonize_ = false;
  CQOVapp app;
  EXPECT_EQ(app.init(0, nullptr), -1);
}

TEST_F(AppStart, TheEndOfAFrameTakesTheDebugKitsAndALogCallBringsThePublicOneBack) {
  ASSERT_EQ(CQOVDebugKitMgr::instance()->add(new CQOVDebugKit("OWN", 200)), 1);
  { const CQOVapp app; }
  EXPECT_EQ(CQOVDebugKitMgr::instance()->find(200)->name(), "QOVPUBLIC");
}

}  // namespace
