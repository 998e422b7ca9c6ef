#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Backend.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <qovplatform/platform_guard.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <ctime>
#include <memory>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/platform/blocking_stream.h"
#include "tests/platform/guard_environment.h"
#include "tests/platform/guard_threads.h"
#include "tests/support/cancelled_thread.h"
#include "tests/support/child.h"
#include "tests/support/latch.h"
#include "tests/support/sanitizers.h"

using qov::test::BlockingStream;
using qov::test::cancelIn;
using qov::test::countGuardLines;
using qov::test::holdsInChild;
using qov::test::kLongGuard;
using qov::test::letTheWatchLook;
using qov::test::logHere;
using qov::test::logTo;
using qov::test::waitForGuardLine;

namespace {

using Clock = std::chrono::steady_clock;

// The time as the guards read it.
Clock::duration coarseNow() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec);
}

// Stays until a guard of one (millisecond-long) second that opens now must be overdue.
void outlastOneSecond() {
  const auto end = coarseNow() + std::chrono::milliseconds(1);
  while (coarseNow() < end) {
    std::this_thread::yield();
  }
}

// More guards than the watch can see.
constexpr int kTooMany = 2000;
constexpr unsigned kHalfASecond = 500;

// Closes an overdue guard that the watch cannot see.
void closeOneLate(unsigned kind, unsigned level) {
  std::vector<std::unique_ptr<FowGuard>> nest;
  for (int i = 0; i < kTooMany; ++i) {
    nest.push_back(std::make_unique<FowGuard>(107, 0, kLongGuard));
  }
  const FowGuard tooDeep(kind, level, 1);
  outlastOneSecond();
}

// A destination of the program that fails with every record, while it lives.
class ThrowingBackend : public ACE_Log_Msg_Backend {
 public:
  ThrowingBackend() : former_(ACE_Log_Msg::msg_backend(this)) {
    ACE_LOG_MSG->set_flags(ACE_Log_Msg::CUSTOM);
  }
  ~ThrowingBackend() override {
    ACE_LOG_MSG->clr_flags(ACE_Log_Msg::CUSTOM);
    ACE_Log_Msg::msg_backend(former_);
  }

  int open(const ACE_TCHAR*) override { return 0; }
  int reset() override { return 0; }
  int close() override { return 0; }
  ssize_t log(ACE_Log_Record&) override {
    records_.count();
    throw std::runtime_error("no connection");
  }

  Latch records_;

 private:
  ACE_Log_Msg_Backend* const former_;
};

// A log in which a thread can be cancelled.
class Interruptible : public std::stringbuf {
 public:
  std::ostream stream_{this};

 protected:
  std::streamsize xsputn(const char* text, std::streamsize length) override {
    pthread_testcancel();
    return std::stringbuf::xsputn(text, length);
  }
};

// Ends a process that hangs: a test in it must fail, not last for ever.
[[maybe_unused]] void endAfterAMinute() {
  ::alarm(60);
}

}  // namespace

TEST(FowGuard, LogsAHandlingWhileItStillHangs) {
  const FowGuard guard(101, 7, 20);
  EXPECT_TRUE(waitForGuardLine("FowGuard: handling of kind 101, level 7 in thread " +
                               std::to_string(::gettid()) + " is still going on after 20 s\n"));
}

TEST(FowGuard, LogsOneLineForAHandlingThatHangsAndThenEnds) {
  {
    const FowGuard guard(102, 0, 5);
    ASSERT_TRUE(waitForGuardLine("kind 102,"));
  }
  ASSERT_TRUE(letTheWatchLook());
  EXPECT_EQ(countGuardLines("kind 102,"), 1);
}

TEST(FowGuard, SaysNothingOfAHandlingThatEndsInTime) {
  constexpr unsigned kSeconds = 100;
  unsigned level = 0;
  for (bool inTime = false; !inTime; ++level) {
    const Clock::time_point begin = Clock::now();
    { const FowGuard guard(103, level, kSeconds); }
    inTime = Clock::now() < begin + std::chrono::milliseconds(kSeconds / 2);
  }
  // Whatever were left of it would be seen before this one.
  const FowGuard later(134, 0, kSeconds);
  ASSERT_TRUE(waitForGuardLine("kind 134,"));
  EXPECT_EQ(countGuardLines("kind 103, level " + std::to_string(level - 1) + " "), 0);
}

TEST(FowGuard, SaysNothingOfAHandlingThatStillHasTime) {
  const FowGuard guard(104, 0, kLongGuard);
  ASSERT_TRUE(letTheWatchLook());
  EXPECT_EQ(countGuardLines("kind 104,"), 0);
}

TEST(FowGuard, HasNoLimitWithZeroSeconds) {
  {
    const FowGuard guard(105, 0, 0);
    ASSERT_TRUE(letTheWatchLook());
  }
  EXPECT_EQ(countGuardLines("kind 105,"), 0);
}

TEST(FowGuard, SeesNestedGuardsOfOneThreadEachForItself) {
  const FowGuard outer(106, 1, 30);
  const FowGuard inner(106, 2, 5);
  EXPECT_TRUE(waitForGuardLine("kind 106, level 2 "));
  EXPECT_TRUE(waitForGuardLine("kind 106, level 1 "));
}

TEST(FowGuard, LogsOnClosingWhatIsNestedTooDeepToBeSeenBefore) {
  closeOneLate(108, 3);
  EXPECT_EQ(countGuardLines("FowGuard: handling of kind 108, level 3 took longer than 1 s\n"), 1);
  EXPECT_EQ(countGuardLines("kind 107,"), 0);
}

TEST(FowGuard, OutlivesALogBackendThatThrows) {
  {
    ThrowingBackend backend;
    const FowGuard seen(131, 0, 1);
    EXPECT_TRUE(backend.records_.waitFor(1));
    closeOneLate(132, 0);
    EXPECT_TRUE(backend.records_.waitFor(2));
  }
  EXPECT_TRUE(letTheWatchLook());
}

TEST(FowGuard, LetsAThreadBeCancelledOnlyAfterItsLine) {
  Interruptible log;
  cancelIn([&] {
    logTo(log.stream_);
    closeOneLate(133, 0);
  });
  EXPECT_NE(log.str().find("kind 133, level 0 took longer than 1 s\n"), std::string::npos);
}

TEST(FowGuard, LogsExactlyOneLineWhoeverNoticesFirst) {
  constexpr int kRounds = 50;
  for (int i = 0; i < kRounds; ++i) {
    const FowGuard guard(109, 0, 1);
    outlastOneSecond();
  }
  ASSERT_TRUE(letTheWatchLook());
  EXPECT_EQ(countGuardLines("kind 109,"), kRounds);
}

TEST(FowGuard, KeepsErrnoWhenItLogs) {
  errno = EXDEV;
  {
    const FowGuard guard(110, 0, 1);
    outlastOneSecond();
    errno = ENOTTY;
  }
  EXPECT_EQ(errno, ENOTTY);
}

TEST(FowGuard, WatchesManyThreadsAtOnce) {
  std::vector<std::thread> threads;
  for (unsigned level = 0; level < 8; ++level) {
    threads.emplace_back([level] {
      logHere();
      for (int i = 0; i < 1000; ++i) {
        const FowGuard quick(111, level, kLongGuard);
      }
      const FowGuard hanging(112, level, 10);
      EXPECT_TRUE(waitForGuardLine("kind 112, level " + std::to_string(level) + " "));
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(countGuardLines("kind 111,"), 0);
  EXPECT_EQ(countGuardLines("kind 112,"), 8);
}

TEST(FowGuard, IsWatchedByAThreadThatLeavesTheSignalsToOthers) {
  const FowGuard guard(123, 0, kLongGuard);
  EXPECT_TRUE(qov::test::takesNoSignals(qov::test::waitUntilTheWatchSleeps()));
}

TEST(FowGuard, SeesAThreadAfterAnyNumberOfOthers) {
  for (int i = 0; i < kTooMany; ++i) {
    std::thread([] { const FowGuard guard(113, 0, kLongGuard); }).join();
  }
  const FowGuard guard(113, 1, 5);
  EXPECT_TRUE(waitForGuardLine("kind 113, level 1 "));
}

namespace {

// Opens a guard while the objects of its thread are destroyed.
class GuardsAtTheEndOfItsThread {
 public:
  ~GuardsAtTheEndOfItsThread() {
    const FowGuard late(122, 0, 1);
    outlastOneSecond();
  }
};

}  // namespace

TEST(FowGuard, WorksAtTheEndOfItsThread) {
  std::thread([] {
    thread_local const GuardsAtTheEndOfItsThread object;
    const FowGuard first(113, 0, kLongGuard);
    logHere();
  }).join();
  ASSERT_TRUE(letTheWatchLook());
  EXPECT_EQ(countGuardLines("handling of kind 122, level 0 "), 1);
}

TEST(FowGuardDeathTest, DoesNotDisturbTheExitOfAProcessInTheMiddleOfAHandling) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        const FowGuard guard(114, 0, 5);
        if (waitForGuardLine("kind 114,")) {
          std::exit(0);
        }
      },
      ::testing::ExitedWithCode(0), "");
}

// ThreadSanitizer objects to ACE, which destroys its log's lock at exit while the stuck thread has
// it.
#if !QOV_TEST_TSAN
TEST(FowGuardDeathTest, DoesNotKeepAProcessFromItsEndWhenTheLogTakesNothing) {
  ::testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_EXIT(
      {
        endAfterAMinute();
        auto* const stuck = new BlockingStream;
        logTo(stuck->stream());
        const FowGuard guard(119, 0, 5);
        if (stuck->waitForWriter()) {
          std::exit(0);
        }
      },
      ::testing::ExitedWithCode(0), "");
}
#endif

// ThreadSanitizer ends a process that starts a thread after forking from several ones.
#if !QOV_TEST_TSAN
// Both fork while the watch sleeps: nothing in here keeps ACE's log whole in a child, as the
// library does, and a thread that begins holds a lock of AddressSanitizer's.
TEST(FowGuard, WorksInTheChildOfAProcessThatHadGuards) {
  const FowGuard ofTheParent(115, 0, kLongGuard);
  ASSERT_TRUE(letTheWatchLook());
  qov::test::waitUntilTheWatchSleeps();
  EXPECT_TRUE(holdsInChild([] {
    endAfterAMinute();
    const FowGuard guard(116, 0, 5);
    // The thread has another number in here.
    return waitForGuardLine("kind 116, level 0 in thread " + std::to_string(::gettid()));
  }));
  EXPECT_TRUE(letTheWatchLook()) << "the parent's own watch must go on";
}

TEST(FowGuard, IsSeenInTimeAlthoughTheWatchHasGoneToSleepForAnHour) {
  EXPECT_TRUE(holdsInChild([] {
    endAfterAMinute();
    const FowGuard hour(124, 0, kLongGuard);
    qov::test::waitUntilTheWatchSleeps();
    const FowGuard shorter(125, 0, 5);
    return waitForGuardLine("kind 125,");
  }));
}

TEST(FowGuard, ForgetsInAChildWhatOtherThreadsHadOpen) {
  std::thread([] {
    const FowGuard ofAThreadThatDoesNotFork(117, 0, kHalfASecond);
    std::thread forker([] {
      logHere();
      const FowGuard ofTheThreadThatForks(118, 0, kHalfASecond);
      qov::test::waitUntilTheWatchSleeps();
      EXPECT_TRUE(holdsInChild([] {
        endAfterAMinute();
        const int before = countGuardLines("kind 117,");
        // Overdue after the others.
        const FowGuard ofTheChild(121, 0, kHalfASecond);
        return waitForGuardLine("kind 121,") && countGuardLines("kind 117,") == before &&
               countGuardLines("kind 118,") == 1;
      }));
    });
    forker.join();
  }).join();
}
#endif
