#include "module/shutdown_watch.h"

#include <gtest/gtest.h>
#include <qovpub/qov_app.h>
#include <qovpub/qov_exception.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include "frame/current_step.h"
#include "platform/signal_mask.h"
#include "tests/platform/guard_threads.h"
#include "tests/support/failing_threads.h"
#include "tests/support/sanitizers.h"
#include "tests/support/sleeping_thread.h"

namespace {

using qov::ShutdownWatch;

constexpr std::chrono::milliseconds kAllSeconds{ShutdownWatch::kSeconds};

/// Processes whose seconds last one millisecond.
class ShutdownWatchDeathTest : public ::testing::Test {
 protected:
  ShutdownWatchDeathTest() {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    ::setenv("PXOS_GUARD_SECOND_MS", "1", 1);
  }
  ~ShutdownWatchDeathTest() override { ::unsetenv("PXOS_GUARD_SECOND_MS"); }
};

[[noreturn]] void hang() {
  for (;;) {
    ::pause();
  }
}

/// Longer than a stop may take.
void run() {
  const auto end = std::chrono::steady_clock::now() + 2 * kAllSeconds;
  while (std::chrono::steady_clock::now() < end) {
    std::this_thread::yield();
  }
}

/// The frame stays, since its end would be a stop.
void failToStart() {
  char name[] = "agent";
  char foreground[] = "-n";
  char* arguments[] = {name, foreground, nullptr};
  static CQOVapp& app = *new CQOVapp;
  try {
    EXPECT_EQ(app.init(2, arguments), -1);
  } catch (const CQOV_Exception&) {
    // Nor is there a configuration.
  }
}

[[noreturn]] void stopWithAHaltOnTheWay() {
  {
    const ShutdownWatch watch;
    const std::filesystem::path counting = qov::test::threadsNamed("qov-shutdown").front();
    ::raise(SIGSTOP);
    // It has looked at its time meanwhile.
    const long waits = qov::test::waitsOf(counting);
    while (qov::test::waitsOf(counting) < waits + 3) {
      std::this_thread::yield();
    }
  }
  ::_exit(0);
}

/// Continues `child`, which halts itself, when all its seconds have gone by.
void continueLate(pid_t child) {
  int status = 0;
  ::waitpid(child, &status, WUNTRACED);
  std::this_thread::sleep_for(kAllSeconds);
  ::kill(child, SIGCONT);
}

int signalThatEnds(pid_t child) {
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

}  // namespace

TEST_F(ShutdownWatchDeathTest, AbortsAStopThatHangsAndSaysInWhat) {
  EXPECT_EXIT(
      {
        const ShutdownWatch watch;
        const qov::CurrentStep step("stopping module 7");
        hang();
      },
      ::testing::KilledBySignal(SIGABRT),
      "^Failed to stop within 450 s: stopping module 7\nthread [0-9]+ ");
}

TEST_F(ShutdownWatchDeathTest, AbortsEvenWithEverySignalBlocked) {
  EXPECT_EXIT(
      {
        const qov::SignalMask none(SIG_SETMASK, qov::allSignals());
        const ShutdownWatch watch;
        hang();
      },
      ::testing::KilledBySignal(SIGABRT), "Failed to stop within 450 s");
}

// ThreadSanitizer's own abort() flushes the standard streams first, and waits for the lock.
#if !QOV_TEST_TSAN
TEST_F(ShutdownWatchDeathTest, AbortsAlthoughTheHangingThreadHasLockedStandardError) {
  EXPECT_EXIT(
      {
        ::flockfile(stderr);
        const ShutdownWatch watch;
        hang();
      },
      ::testing::KilledBySignal(SIGABRT), "Failed to stop within 450 s");
}
#endif

TEST_F(ShutdownWatchDeathTest, LetsAProcessRunThatHasStoppedInTime) {
  EXPECT_EXIT(
      {
        { const ShutdownWatch watch; }
        run();
        ::_exit(0);
      },
      ::testing::ExitedWithCode(0), "^$");
}

TEST_F(ShutdownWatchDeathTest, GoesOnUntilTheLastStopIsOver) {
  EXPECT_EXIT(
      {
        const ShutdownWatch watch;
        { const ShutdownWatch another; }
        hang();
      },
      ::testing::KilledBySignal(SIGABRT), "");
}

TEST_F(ShutdownWatchDeathTest, BeginsWithAStopSignal) {
  EXPECT_EXIT(
      {
        ShutdownWatch::heedSignals();
        ShutdownWatch::stopSignalCame();
        hang();
      },
      ::testing::KilledBySignal(SIGABRT), "the main thread has not come to the stop signal");
}

TEST_F(ShutdownWatchDeathTest, ForgetsTheSignalOfAStopThatIsOver) {
  EXPECT_EXIT(
      {
        ShutdownWatch::heedSignals();
        ShutdownWatch::stopSignalCame();
        { const ShutdownWatch watch; }
        run();
        ::_exit(0);
      },
      ::testing::ExitedWithCode(0), "^$");
}

TEST_F(ShutdownWatchDeathTest, ForgetsASignalThatIsDroppedForANewFrame) {
  EXPECT_EXIT(
      {
        SigintHandler former(nullptr);
        ShutdownWatch::heedSignals();
        siginfo_t info{};
        former.handle_signal(SIGTERM, &info);
        const SigintHandler next(nullptr);
        run();
        ::_exit(0);
      },
      ::testing::ExitedWithCode(0), "^$");
}

TEST_F(ShutdownWatchDeathTest, HeedsNoSignalAfterAStartThatHasFailed) {
  EXPECT_EXIT(
      {
        SigintHandler handler(nullptr);
        failToStart();
        siginfo_t info{};
        handler.handle_signal(SIGTERM, &info);
        run();
        ::_exit(0);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST_F(ShutdownWatchDeathTest, HeedsNoSignalAfterAStop) {
  EXPECT_EXIT(
      {
        ShutdownWatch::heedSignals();
        { const ShutdownWatch watch; }
        ShutdownWatch::stopSignalCame();
        run();
        ::_exit(0);
      },
      ::testing::ExitedWithCode(0), "^$");
}

TEST_F(ShutdownWatchDeathTest, DoesNotCountTheTimeForWhichTheProcessIsHalted) {
  EXPECT_EXIT(
      {
        const pid_t child = ::fork();
        if (child == 0) {
          stopWithAHaltOnTheWay();
        }
        continueLate(child);
        ::_exit(signalThatEnds(child));
      },
      ::testing::ExitedWithCode(0), "");
}

#if !QOV_TEST_TSAN  // which bears no new threads in a child of several
TEST_F(ShutdownWatchDeathTest, BeginsAnewInAForkedChild) {
  EXPECT_EXIT(
      {
        ShutdownWatch::heedSignals();
        // AddressSanitizer holds a lock of its own while a thread begins: a child that is forked
        // just then waits for it in vain.
        qov::test::waitUntilAsleep("qov-report");
        qov::test::waitUntilAsleep("qov-shutdown");
        const pid_t child = ::fork();
        if (child == 0) {
          const ShutdownWatch watch;
          hang();
        }
        ::_exit(signalThatEnds(child));
      },
      ::testing::ExitedWithCode(SIGABRT), "");
}
#endif

TEST_F(ShutdownWatchDeathTest, SaysThatNobodyWatchesWhereThereIsNoThread) {
  EXPECT_EXIT(
      {
        const qov::test::FailingThreads none(1);
        { const ShutdownWatch watch; }
        { const ShutdownWatch another; }
        ::_exit(0);
      },
      ::testing::ExitedWithCode(0),
      "^Failed to watch over the shutdown: Resource temporarily unavailable\n$");
}

TEST_F(ShutdownWatchDeathTest, LeavesTheSignalsToOtherThreads) {
  EXPECT_EXIT(
      {
        ShutdownWatch::heedSignals();
        ::_exit(qov::test::takesNoSignals(qov::test::waitUntilAsleep("qov-shutdown")) &&
                        qov::test::takesNoSignals(qov::test::waitUntilAsleep("qov-report"))
                    ? 0
                    : 1);
      },
      ::testing::ExitedWithCode(0), "");
}
