#include "frame/app_daemon.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <string>

#include "tests/support/files.h"
#include "tests/support/process_end.h"

using ::testing::HasSubstr;

namespace {

using qov::StartOutcome;
using qov::StartPage;

constexpr std::chrono::seconds kLong{60};

/// Starts daemons from a child process, whose standard error is a file.
class AppDaemon : public ::testing::Test {
 protected:
  AppDaemon() { ::prctl(PR_SET_CHILD_SUBREAPER, 1); }
  ~AppDaemon() override {
    qov::test::killChild(starter);
    // Whatever has been started comes here in the end.
    while (::wait(nullptr) > 0) {
    }
  }

  /// The daemon does `work` and ends with the status that it gives.
  void starts(const std::function<int(StartPage&)>& work, std::chrono::milliseconds limit = kLong) {
    starter = ::fork();
    if (starter == 0) {
      ::dup2(::open(errors_.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600), STDERR_FILENO);
      prepare();
      const qov::StartPagePtr page = qov::becomeDaemon("/", limit);
      ::_exit(page == nullptr ? kForeground : work(*page));
    }
  }

  int exitStatusOfStarter() { return qov::test::waitForEndOf(starter).exitStatus; }
  std::string errors() const { return qov::test::readFile(errors_); }

  /// Whether a daemon finds that `check` holds there.
  bool holdsInDaemon(const std::function<bool()>& check) {
    starts([&](StartPage& page) {
      page.settle(check() ? StartOutcome::kStarted : StartOutcome::kFailed);
      return 0;
    });
    return exitStatusOfStarter() == 0;
  }

  static constexpr int kForeground = 42;

  pid_t starter = -1;
  /// Runs in the starter.
  std::function<void()> prepare = [] {};

 private:
  const qov::test::TemporaryDirectory directory_;
  const std::string errors_ = directory_.file("errors");
};

TEST_F(AppDaemon, HasNothingOpenButItsStandardDescriptors) {
  EXPECT_TRUE(holdsInDaemon([] {
    // The next free number is the first that is not open.
    return ::open("/dev/null", O_RDONLY) == 3 && ::fcntl(2, F_GETFD) == 0;
  }));
}

TEST_F(AppDaemon, KeepsTheFileModeMask) {
  prepare = [] { ::umask(026); };
  EXPECT_TRUE(holdsInDaemon([] { return ::umask(0) == 026; }));
}

TEST_F(AppDaemon, WorksInTheDirectory) {
  EXPECT_TRUE(holdsInDaemon([] {
    char directory[4096] = {};
    return ::getcwd(directory, sizeof directory) != nullptr && std::string(directory) == "/";
  }));
}

TEST_F(AppDaemon, LetsItsStarterGoWithZeroWhenItRuns) {
  starts([](StartPage& page) {
    page.complaints.add("a warning");
    page.settle(StartOutcome::kStarted);
    return 3;
  });
  EXPECT_EQ(exitStatusOfStarter(), 0);
  EXPECT_EQ(errors(), "a warning\n");
}

TEST_F(AppDaemon, LetsItsStarterFailWithWhatItComplainsOf) {
  starts([](StartPage& page) {
    page.complaints.add("first");
    page.complaints.add("second");
    page.settle(StartOutcome::kFailed);
    return 0;
  });
  EXPECT_EQ(exitStatusOfStarter(), 1);
  EXPECT_EQ(errors(), "first\nsecond\n");
}

TEST_F(AppDaemon, ThatExitsBeforeItRunsLetsItsStarterFail) {
  starts([](StartPage& page) {
    page.complaints.add("a reason");
    return 0;
  });
  EXPECT_EQ(exitStatusOfStarter(), 1);
  EXPECT_EQ(errors(),
            "a reason\nFailed to start the daemon: ended with exit status 0 before it ran\n");
}

TEST_F(AppDaemon, ThatIsKilledBeforeItRunsLetsItsStarterFail) {
  starts([](StartPage&) { return ::raise(SIGKILL); });
  EXPECT_EQ(exitStatusOfStarter(), 1);
  EXPECT_EQ(errors(), "Failed to start the daemon: ended by signal 9 (Killed) before it ran\n");
}

TEST_F(AppDaemon, ThatIsTooSlowIsEndedAndLetsItsStarterFail) {
  starts(
      [](StartPage&) {
        ::pause();
        return 0;
      },
      std::chrono::milliseconds(1));
  EXPECT_EQ(exitStatusOfStarter(), 1);
  EXPECT_THAT(errors(), HasSubstr("Failed to start the daemon: it did not run within 0 s\n"));
}

TEST_F(AppDaemon, ThatStopsForAWhileIsWaitedFor) {
  starts([](StartPage& page) {
    const pid_t self = ::getpid();
    if (::fork() == 0) {
      // Someone has to wake it when it has stopped.
      while (qov::test::readFile("/proc/" + std::to_string(self) + "/stat").find(") T ") ==
             std::string::npos) {
      }
      ::kill(self, SIGCONT);
      ::_exit(0);
    }
    ::raise(SIGSTOP);
    page.settle(StartOutcome::kStarted);
    return 0;
  });
  EXPECT_EQ(exitStatusOfStarter(), 0);
}

TEST_F(AppDaemon, RunsAlsoWhereItsStarterIgnoresTheEndOfChildren) {
  prepare = [] { ::signal(SIGCHLD, SIG_IGN); };
  starts([](StartPage& page) {
    page.settle(StartOutcome::kStarted);
    return 0;
  });
  EXPECT_EQ(exitStatusOfStarter(), 0);
}

TEST_F(AppDaemon, FailsAlsoWhereItsStarterIgnoresTheEndOfChildren) {
  prepare = [] { ::signal(SIGCHLD, SIG_IGN); };
  starts([](StartPage&) { return ::raise(SIGKILL); });
  EXPECT_EQ(exitStatusOfStarter(), 1);
}

TEST_F(AppDaemon, LeavesTheStartersOwnChildrenAlone) {
  prepare = [] {
    if (::fork() == 0) {
      ::_exit(5);
    }
  };
  starts([](StartPage& page) {
    page.settle(StartOutcome::kStarted);
    return 0;
  });
  EXPECT_EQ(exitStatusOfStarter(), 0);
}

TEST_F(AppDaemon, GetsTheStopSignalsOfTheWaitingStarter) {
  for (const int signum : {SIGINT, SIGTERM}) {
    prepare = [signum] {
      // Comes to the starter before there is a daemon.
      sigset_t set;
      sigemptyset(&set);
      sigaddset(&set, signum);
      ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
      ::raise(signum);
    };
    starts([signum](StartPage& page) {
      sigset_t set;
      sigemptyset(&set);
      sigaddset(&set, signum);
      int got = 0;
      ::sigwait(&set, &got);
      page.settle(got == signum ? StartOutcome::kStarted : StartOutcome::kFailed);
      return 0;
    });
    EXPECT_EQ(exitStatusOfStarter(), 0) << signum;
  }
}

TEST_F(AppDaemon, GoesOnWhenItsStarterIsKilled) {
  const qov::test::TemporaryDirectory directory;
  const std::string up = directory.file("up");
  const std::string go = directory.file("go");
  const std::string done = directory.file("done");
  starts([&](StartPage& page) {
    qov::test::writeFile(up, "");
    qov::test::waitUntil([&] { return ::access(go.c_str(), F_OK) == 0; });
    page.settle(StartOutcome::kStarted);
    qov::test::writeFile(done, "");
    return 0;
  });
  ASSERT_TRUE(qov::test::waitUntil([&] { return ::access(up.c_str(), F_OK) == 0; }));
  qov::test::killChild(starter);
  starter = -1;
  qov::test::writeFile(go, "");
  EXPECT_TRUE(qov::test::waitUntil([&] { return ::access(done.c_str(), F_OK) == 0; }));
}

TEST_F(AppDaemon, StaysInTheForegroundWhereNoProcessCanBeForked) {
  if (::geteuid() == 0) {
    GTEST_SKIP() << "root has no limit of processes";
  }
  prepare = [] {
    const rlimit none{0, 0};
    ::setrlimit(RLIMIT_NPROC, &none);
  };
  starts([](StartPage&) { return 0; });
  EXPECT_EQ(exitStatusOfStarter(), static_cast<int>(kForeground));
}

TEST(LastLines, KeepsAllThatThereIsRoomFor) {
  qov::LastLines lines;
  const std::string half(qov::LastLines::kRoom / 2 - 1, 'x');
  lines.add(half);
  lines.add(half);
  EXPECT_EQ(lines.text(), half + "\n" + half + "\n");
}

TEST(LastLines, DropsTheFirstLinesForTheLast) {
  qov::LastLines lines;
  lines.add("first");
  lines.add("second");
  const std::string third(qov::LastLines::kRoom - 14, 'x');
  lines.add(third);
  lines.add("last");
  EXPECT_EQ(lines.text(), "second\n" + third + "\nlast\n");
}

TEST(LastLines, CutsALineThatIsTooLongAlone) {
  qov::LastLines lines;
  lines.add("first");
  lines.add(std::string(qov::LastLines::kRoom, 'x'));
  EXPECT_EQ(lines.text(), std::string(qov::LastLines::kRoom - 1, 'x') + "\n");
}

}  // namespace
