#include <fcntl.h>
#include <gtest/gtest.h>
#include <qovplatform/platform_guard.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <vector>

#include "frame/shutdown_supervision.h"
#include "tests/platform/guard_environment.h"
#include "tests/platform/guard_threads.h"
#include "tests/support/sanitizers.h"

using qov::test::kLongGuard;

namespace {

// Threads that watch over a shutdown in this process.
std::vector<std::filesystem::path> watchdogs() {
  return qov::test::threadsNamed("qov-shutdown");
}

// A thread that was joined may still be listed for a moment.
void waitUntilNoWatchdogIsLeft() {
  while (!watchdogs().empty()) {
    std::this_thread::yield();
  }
}

[[noreturn]] void hang() {
  for (;;) {
    ::pause();
  }
}

// Makes standard error a pipe that nobody reads and that has no room left.
bool fillStandardError() {
  int ends[2];
  if (::pipe2(ends, O_NONBLOCK) != 0) {
    return false;
  }
  const char byte = 0;
  while (::write(ends[1], &byte, 1) == 1) {
  }
  return ::fcntl(ends[1], F_SETFL, 0) == 0 && ::dup2(ends[1], STDERR_FILENO) == STDERR_FILENO;
}

constexpr unsigned kStoppedSeconds = 1000;

long waitsOf(const std::filesystem::path& thread) {
  const std::string status = qov::test::readFile(thread / "status");
  const std::string label = "\nvoluntary_ctxt_switches:";
  return std::stol(status.substr(status.find(label) + label.size()));
}

[[noreturn]] void shutDownWithAStopOnTheWay() {
  {
    MonitorGuard guard(kStoppedSeconds);
    guard.shutdownBegins();
    const std::filesystem::path watchdog = watchdogs().front();
    ::raise(SIGSTOP);
    // It has looked at its time meanwhile.
    const long waits = waitsOf(watchdog);
    while (waitsOf(watchdog) < waits + 3) {
      std::this_thread::yield();
    }
  }
  ::_exit(0);
}

/// Continues `child`, which stops itself, when a guard of kStoppedSeconds has run out.
void continueLate(pid_t child) {
  int status = 0;
  ::waitpid(child, &status, WUNTRACED);
  std::this_thread::sleep_for(std::chrono::milliseconds(kStoppedSeconds));
  ::kill(child, SIGCONT);
}

class MonitorGuardDeathTest : public ::testing::Test {
 protected:
  MonitorGuardDeathTest() { ::testing::FLAGS_gtest_death_test_style = "threadsafe"; }
};

}  // namespace

TEST_F(MonitorGuardDeathTest, AbortsAShutdownThatHangs) {
  EXPECT_EXIT(
      {
        MonitorGuard guard(20);
        guard.shutdownBegins();
        hang();
      },
      ::testing::KilledBySignal(SIGABRT),
      "MonitorGuard: the shutdown of process [0-9]+ has not ended within 20 s, aborting\n");
}

TEST_F(MonitorGuardDeathTest, CallsItsReportBeforeItAborts) {
  EXPECT_EXIT(
      {
        MonitorGuard guard(20);
        guard.beforeAbort([] { std::fputs("and that is why\n", stderr); });
        guard.shutdownBegins();
        hang();
      },
      ::testing::KilledBySignal(SIGABRT), "aborting\nand that is why\n");
}

TEST_F(MonitorGuardDeathTest, AbortsAlthoughItsReportHangs) {
  EXPECT_EXIT(
      {
        MonitorGuard guard(20);
        guard.beforeAbort(&hang);
        guard.shutdownBegins();
        hang();
      },
      ::testing::KilledBySignal(SIGABRT), "aborting");
}

TEST_F(MonitorGuardDeathTest, AbortsAlthoughItsReportThrows) {
  EXPECT_EXIT(
      {
        MonitorGuard guard(20);
        guard.beforeAbort([] { throw 1; });
        guard.shutdownBegins();
        hang();
      },
      ::testing::KilledBySignal(SIGABRT), "aborting");
}

TEST_F(MonitorGuardDeathTest, AbortsEvenWithEverySignalBlocked) {
  EXPECT_EXIT(
      {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
        MonitorGuard guard(20);
        guard.shutdownBegins();
        hang();
      },
      ::testing::KilledBySignal(SIGABRT), "has not ended within 20 s, aborting");
}

TEST_F(MonitorGuardDeathTest, AbortsAlthoughStandardErrorTakesNothing) {
  EXPECT_EXIT(
      {
        ::alarm(60);  // ends the process by another signal
        if (fillStandardError()) {
          MonitorGuard guard(20);
          guard.shutdownBegins();
          hang();
        }
      },
      ::testing::KilledBySignal(SIGABRT), "");
}

// ThreadSanitizer's own abort() flushes the standard streams first, and waits for the lock.
#if !QOV_TEST_TSAN
TEST_F(MonitorGuardDeathTest, AbortsAlthoughStandardErrorIsLockedByTheHangingThread) {
  EXPECT_EXIT(
      {
        ::flockfile(stderr);
        MonitorGuard guard(20);
        guard.shutdownBegins();
        hang();
      },
      ::testing::KilledBySignal(SIGABRT), "has not ended within 20 s, aborting");
}
#endif

TEST_F(MonitorGuardDeathTest, LetsAProcessRunLongerThanItsTimeBeforeTheShutdownBegins) {
  EXPECT_EXIT(
      {
        const MonitorGuard guard(1);
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
        while (std::chrono::steady_clock::now() < end) {
          std::this_thread::yield();
        }
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST_F(MonitorGuardDeathTest, HasNoLimitWithZeroSeconds) {
  EXPECT_EXIT(
      {
        MonitorGuard guard(0);
        guard.shutdownBegins();
        std::exit(watchdogs().empty() ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST(MonitorGuard, HearsOfTheShutdownThroughTheFrame) {
  static_assert(qov::HasShutdownBegins<MonitorGuard>::value);
  waitUntilNoWatchdogIsLeft();
  {
    MonitorGuard guard(kLongGuard);
    qov::shutdownBegins(guard);
    EXPECT_EQ(watchdogs().size(), 1u);
  }
  waitUntilNoWatchdogIsLeft();
}

TEST(MonitorGuard, StartsItsThreadOnlyWhenTheShutdownBegins) {
  waitUntilNoWatchdogIsLeft();
  {
    MonitorGuard guard(kLongGuard);
    EXPECT_EQ(watchdogs().size(), 0u);
    guard.shutdownBegins();
    EXPECT_EQ(watchdogs().size(), 1u);
    guard.shutdownBegins();
    EXPECT_EQ(watchdogs().size(), 1u) << "a later call changes nothing";
  }
  waitUntilNoWatchdogIsLeft();
}

TEST(MonitorGuard, LeavesTheSignalsToOtherThreads) {
  waitUntilNoWatchdogIsLeft();
  MonitorGuard guard(kLongGuard);
  guard.shutdownBegins();
  // A thread starts with every signal blocked, whatever it does later.
  EXPECT_TRUE(qov::test::takesNoSignals(qov::test::waitUntilAsleep("qov-shutdown")));
}

TEST(MonitorGuard, EndsWithoutAWordWhenTheShutdownIsInTime) {
  ::testing::internal::CaptureStderr();
  {
    MonitorGuard guard(kLongGuard);
    guard.shutdownBegins();
  }
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
}

TEST_F(MonitorGuardDeathTest, DoesNotCountTheTimeForWhichTheProcessIsStopped) {
  EXPECT_EXIT(
      {
        const pid_t child = ::fork();
        if (child == 0) {
          shutDownWithAStopOnTheWay();
        }
        continueLate(child);
        int status = 0;
        ::waitpid(child, &status, 0);
        std::exit(WIFEXITED(status) ? WEXITSTATUS(status) : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

// A sanitizer's runtime needs address space all the time.
#if !QOV_TEST_ASAN && !QOV_TEST_TSAN
TEST_F(MonitorGuardDeathTest, SaysThatAShutdownIsNotSupervisedWhenThereIsNoThreadForIt) {
  EXPECT_EXIT(
      {
        MonitorGuard guard(kLongGuard);
        rlimit noMore{};
        noMore.rlim_cur = 1;
        noMore.rlim_max = 1;
        ::setrlimit(RLIMIT_AS, &noMore);
        guard.shutdownBegins();
        ::_exit(0);
      },
      ::testing::ExitedWithCode(0),
      "MonitorGuard: the shutdown of process [0-9]+ is not supervised");
}
#endif
