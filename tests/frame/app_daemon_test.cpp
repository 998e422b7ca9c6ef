#include "frame/app/app_daemon.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <ctime>
#include <functional>
#include <new>
#include <string>

#include "tests/support/files.h"
#include "tests/support/process_end.h"
#include "tests/support/sanitizers.h"
#include "tests/support/sleeping_thread.h"

using ::testing::HasSubstr;

using qov::StartOutcome;
using qov::StartPage;

namespace {

constexpr std::chrono::seconds kLong{60};

sigset_t only(int signum) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, signum);
  return set;
}

/// Comes to this process, which lets it wait.
void hold(int signum) {
  const sigset_t set = only(signum);
  ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
  ::raise(signum);
}

bool holds(int signum) {
  sigset_t pending;
  ::sigpending(&pending);
  return sigismember(&pending, signum) == 1;
}

/// Also where root runs the test, who has no limit of processes.
void forkNoMore() {
  if (::geteuid() == 0) {
    static_cast<void>(!::setuid(65534));
  }
  const rlimit none{0, 0};
  ::setrlimit(RLIMIT_NPROC, &none);
}

int forksToGo = 0;

/// From now on `count` forks come off, each in the child of the one before.
void forkOnly(int count) {
  forksToGo = count;
  const auto afterFork = [] {
    if (--forksToGo == 0) {
      forkNoMore();
    }
  };
  if (count == 0) {
    forkNoMore();
  }
  ::pthread_atfork(nullptr, nullptr, afterFork);
}

/// Whether a wait of the process that watches the daemon lasts until the daemon runs, and counts as
/// one that has taken too long.
bool waitsAreTooLong = false;

/// A starter whose waits are interrupted by a signal, and one more comes right after each, until it
/// has tried to pass one on. The flag is shared with the processes that are forked.
pid_t interruptedStarter = 0;
std::atomic<bool>* interruptedEnough = nullptr;

bool isInterrupted() {
  return ::getpid() == interruptedStarter && !*interruptedEnough;
}

std::atomic<bool>* makeSharedFlag() {
  void* const room = ::mmap(nullptr, sizeof(std::atomic<bool>), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  return room != MAP_FAILED ? new (room) std::atomic<bool>(false) : nullptr;
}

pid_t parentOf(pid_t pid) {
  const std::string stat = qov::test::readFile("/proc/" + std::to_string(pid) + "/stat");
  const std::size_t state = stat.find(") ");
  return state == std::string::npos ? -1 : std::stoi(stat.substr(state + 4));
}

}  // namespace

// These stand in front of the C library's for the whole process.

/// Fails in the starter that is interrupted.
extern "C" int kill(pid_t pid, int signum) noexcept {
  if (!isInterrupted()) {
    return static_cast<int>(::syscall(SYS_kill, pid, signum));
  }
  *interruptedEnough = true;
  errno = ESRCH;
  return -1;
}

extern "C" pid_t waitpid(pid_t pid, int* status, int options) {
  if (!isInterrupted()) {
    return ::wait4(pid, status, options, nullptr);
  }
  errno = EINTR;
  ::raise(SIGTERM);
  return -1;
}

extern "C" int sem_clockwait(sem_t* semaphore, clockid_t clock, const timespec* time) {
  using Wait = int (*)(sem_t*, clockid_t, const timespec*);
  static const auto next = reinterpret_cast<Wait>(::dlsym(RTLD_NEXT, "sem_clockwait"));
  if (!waitsAreTooLong) {
    return next(semaphore, clock, time);
  }
  static_assert(offsetof(StartPage, news) == 0);
  const auto* const page = reinterpret_cast<const StartPage*>(semaphore);
  while (page->outcome == StartOutcome::kOpen) {
    ::sched_yield();
  }
  errno = ETIMEDOUT;
  return -1;
}

namespace {

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
      ::_exit(page == nullptr ? goOn() : work(*page));
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
  /// What the starter does in the foreground.
  std::function<int()> goOn = [] { return kForeground; };
  const qov::test::TemporaryDirectory files;

 private:
  const std::string errors_ = files.file("errors");
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

TEST_F(AppDaemon, ThatRunsJustAtTheLimitIsLeftAlone) {
  const std::string go = files.file("go");
  const std::string told = files.file("told");
  prepare = [] { waitsAreTooLong = true; };
  starts([&](StartPage& page) {
    const sigset_t set = only(SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
    page.settle(StartOutcome::kStarted);
    qov::test::waitUntil([&] { return ::access(go.c_str(), F_OK) == 0; });
    qov::test::writeFile(told, holds(SIGTERM) ? "ended" : "left alone");
    return 0;
  });
  EXPECT_EQ(exitStatusOfStarter(), 0);
  EXPECT_EQ(errors(), "");
  qov::test::writeFile(go, "");
  EXPECT_TRUE(qov::test::waitUntil([&] { return qov::test::readFile(told) == "left alone"; }))
      << qov::test::readFile(told);
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
      hold(signum);  // before there is a daemon
    };
    starts([signum](StartPage& page) {
      const sigset_t set = only(signum);
      int got = 0;
      ::sigwait(&set, &got);
      page.settle(got == signum ? StartOutcome::kStarted : StartOutcome::kFailed);
      return 0;
    });
    EXPECT_EQ(exitStatusOfStarter(), 0) << signum;
  }
}

TEST_F(AppDaemon, IsWaitedForThoughAStopSignalCannotBePassedOn) {
  // It has come when the wait was interrupted already.
  interruptedEnough = makeSharedFlag();
  ASSERT_NE(interruptedEnough, nullptr);
  prepare = [] {
    const sigset_t set = only(SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);  // in the daemon
    interruptedStarter = ::getpid();
  };
  starts([](StartPage& page) {
    const std::string starterItself = "/proc/" + std::to_string(interruptedStarter);
    qov::test::waitUntil([&] {
      return *interruptedEnough &&
             (page.outcome != StartOutcome::kOpen || qov::test::sleeps(starterItself));
    });
    page.settle(StartOutcome::kStarted);
    return 0;
  });
  EXPECT_EQ(exitStatusOfStarter(), 0);
  EXPECT_EQ(errors(), "");
  EXPECT_TRUE(*interruptedEnough);
}

TEST_F(AppDaemon, GoesOnWhenItsStarterIsKilled) {
  const std::string up = files.file("up");
  const std::string go = files.file("go");
  const std::string done = files.file("done");
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

TEST_F(AppDaemon, StaysInTheForegroundWhicheverForkFails) {
  for (const int count : {0, 1, 2}) {
    prepare = [count] { forkOnly(count); };
    starts([](StartPage&) { return 0; });
    EXPECT_EQ(exitStatusOfStarter(), static_cast<int>(kForeground)) << count;
    EXPECT_EQ(errors(), "") << count;
  }
  prepare = [] { forkOnly(4); };
  EXPECT_TRUE(holdsInDaemon([] { return true; })) << "there are four of them";
}

TEST_F(AppDaemon, StaysInTheForegroundWhenThereIsNoDaemonAtLast) {
#if QOV_TEST_ASAN
  GTEST_SKIP() << "the leak check of the process that cannot fork has to fork";
#endif
  prepare = [] { forkOnly(3); };
  starts([](StartPage&) { return 0; });
  EXPECT_EQ(exitStatusOfStarter(), static_cast<int>(kForeground));
  EXPECT_EQ(errors(), "");
}

TEST_F(AppDaemon, LeavesAStopSignalToTheForegroundWhereItCannotFork) {
  for (const int count : {0, 1, 2}) {
    prepare = [count] {
      forkOnly(count);
      hold(SIGINT);
    };
    goOn = [] { return holds(SIGINT) ? kForeground : 1; };
    starts([](StartPage&) { return 0; });
    EXPECT_EQ(exitStatusOfStarter(), static_cast<int>(kForeground)) << count;
  }
}

TEST_F(AppDaemon, ThatHasFailedEndsBeforeItsStarter) {
  const std::string ended = files.file("ended");
  starts([&](StartPage& page) {
    page.settle(StartOutcome::kFailed);
    const timespec work{0, 100000000};  // ending takes a while
    ::nanosleep(&work, nullptr);
    qov::test::writeFile(ended, "");
    return 0;
  });
  EXPECT_EQ(exitStatusOfStarter(), 1);
  EXPECT_EQ(::access(ended.c_str(), F_OK), 0);
}

TEST_F(AppDaemon, ThatHasFailedAndDoesNotEndIsLeftAlone) {
  const std::string go = files.file("go");
  const std::string alive = files.file("alive");
  starts([&](StartPage& page) {
    page.settle(StartOutcome::kFailed);
    qov::test::waitUntil([&] { return ::access(go.c_str(), F_OK) == 0; });
    qov::test::writeFile(alive, "");
    return 0;
  });
  EXPECT_EQ(exitStatusOfStarter(), 1);
  qov::test::writeFile(go, "");
  EXPECT_TRUE(qov::test::waitUntil([&] { return ::access(alive.c_str(), F_OK) == 0; }));
}

TEST_F(AppDaemon, IsEndedWhenTheProcessThatWatchesItIsKilled) {
  const std::string told = files.file("told");
  pid_t starterItself = 0;
  prepare = [&] {
    starterItself = ::getpid();
    const sigset_t set = only(SIGTERM);
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
  };
  starts([&](StartPage&) {
    // Its parent is the watcher once the process between them has gone.
    qov::test::waitUntil([&] { return parentOf(::getppid()) == starterItself; });
    ::kill(::getppid(), SIGKILL);
    const sigset_t set = only(SIGTERM);
    const timespec limit{60, 0};
    if (::sigtimedwait(&set, nullptr, &limit) == SIGTERM) {
      qov::test::writeFile(told, "");
    }
    return 0;
  });
  EXPECT_EQ(exitStatusOfStarter(), 1);
  EXPECT_EQ(errors(),
            "Failed to learn whether the daemon runs: the process that watches it has ended\n");
  EXPECT_TRUE(qov::test::waitUntil([&] { return ::access(told.c_str(), F_OK) == 0; }));
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
