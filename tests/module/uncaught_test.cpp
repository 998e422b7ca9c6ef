#include "module/uncaught.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <exception>
#include <new>

#include "tests/support/failing_allocations.h"

namespace {

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
      ::testing::KilledBySignal(SIGABRT), "^Failed to go on: Cannot allocate memory\n$");
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
