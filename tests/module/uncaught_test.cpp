#include "module/uncaught.h"

#include <ace/Log_Msg.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <new>
#include <thread>

#include "platform/signal_mask.h"
#include "tests/support/failing_allocations.h"
#include "tests/support/this_process.h"

namespace {

/// Whose text is interrupted by a signal that ends the process otherwise.
class Interrupted : public std::exception {
 public:
  const char* what() const noexcept override {
    std::raise(SIGUSR1);
    return "its own words";
  }
};

[[noreturn]] void failIn(const std::exception_ptr& exception) noexcept {
  std::rethrow_exception(exception);
}

TEST(UncaughtDeathTest, TellsOfMissingMemoryWithoutAny) {
  const std::exception_ptr noMemory = std::make_exception_ptr(std::bad_alloc());
  EXPECT_EXIT(
      {
        qov::tellUncaught();
        const qov::test::FailingAllocations fail(0);
        failIn(noMemory);
      },
      ::testing::KilledBySignal(SIGABRT),
      "^Failed to go on in thread .+: Cannot allocate memory\n$");
}

TEST(UncaughtDeathTest, TellsOfAnEndWithoutAnException) {
  EXPECT_EXIT(
      {
        qov::tellUncaught();
        std::terminate();
      },
      ::testing::KilledBySignal(SIGABRT),
      "Failed to go on in thread .*: std::terminate\\(\\) was called");
}

TEST(UncaughtDeathTest, IsNotCutByASignal) {
  EXPECT_EXIT(
      {
        std::signal(SIGUSR1, [](int) { std::_Exit(3); });
        qov::tellUncaught();
        failIn(std::make_exception_ptr(Interrupted()));
      },
      ::testing::KilledBySignal(SIGABRT), "Failed to go on in thread .*: its own words\n$");
}

TEST(UncaughtDeathTest, IsNotCutByAnAlarmThatTheProgramHasBlocked) {
  EXPECT_EXIT(
      {
        const qov::SignalMask none(SIG_SETMASK, qov::allSignals());
        std::raise(SIGALRM);
        qov::tellUncaught();
        std::terminate();
      },
      ::testing::KilledBySignal(SIGABRT), "^Failed to go on in thread ");
}

TEST(UncaughtDeathTest, TellsOfTheEndOfAThreadThatIsToBeCancelled) {
  EXPECT_EXIT(
      {
        qov::tellUncaught();
        ::pthread_cancel(::pthread_self());
        std::terminate();
      },
      ::testing::KilledBySignal(SIGABRT), "Failed to go on in thread ");
}

TEST(UncaughtDeathTest, EndsTheProcessWhereTheLogHangsAlsoWithTheAlarmBlocked) {
  EXPECT_EXIT(
      {
        qov::test::thisProcess();
        qov::tellUncaught();
        std::thread([] { ACE_LOG_MSG->acquire(); }).join();
        const qov::SignalMask none(SIG_SETMASK, qov::allSignals());
        std::terminate();
      },
      ::testing::KilledBySignal(SIGALRM), "Failed to go on in thread ");
}

TEST(UncaughtDeathTest, LeavesAHandlerOfTheProgramInPlace) {
  EXPECT_EXIT(
      {
        std::set_terminate([] { std::_Exit(3); });
        qov::tellUncaught();
        std::terminate();
      },
      ::testing::ExitedWithCode(3), "^$");
}

}  // namespace
