#include <gtest/gtest.h>
#include <qovpub/qov_common_debugkit.h>

#include <cstdarg>

#include "tests/diag/log_capture.h"
#include "tests/support/failing_allocations.h"

namespace {

using qov::test::allocations;

constexpr char kLongText[] = "a text that is longer than what a string holds in itself";

void infoF(const CQOVDebugKit& kit, const char* format, ...) {
  va_list args;
  va_start(args, format);
  kit.info(1, "f", 2, format, args);
  va_end(args);
}

class DisabledLevel : public testing::Test {
 protected:
  /// How often `call` allocates; this thread's objects and the registry are there before.
  template <class Call>
  static long allocationsOf(const Call& call) {
    call();
    const long before = allocations();
    call();
    return allocations() - before;
  }

  const CQOVDebugKit kit_{"KIT", 5};
  const LogCapture capture_{LM_SHUTDOWN};
};

TEST_F(DisabledLevel, BuildsNothingForALiteral) {
  EXPECT_EQ(allocationsOf([this] {
              kit_.trace(kLongText);
              kit_.debug(1, "f", 2, kLongText);
              kit_.info(1, "f", 2, kLongText);
              kit_.warn(1, "f", 2, kLongText);
              kit_.error(1, "f", 2, kLongText);
              kit_.critical(1, "f", 2, kLongText);
            }),
            0);
}

TEST_F(DisabledLevel, BuildsNothingForAFormat) {
  EXPECT_EQ(allocationsOf([this] { infoF(kit_, "%s %1000d", kLongText, 5); }), 0);
}

TEST_F(DisabledLevel, BuildsNothingInAGuard) {
  EXPECT_EQ(allocationsOf([] {
              CQOVDebugKitGuard guard(0, kLongText);
              guard.debug(1, "f", 2, "%s", kLongText);
              guard.error(1, "f", 2, "%s", kLongText);
            }),
            0);
}

TEST_F(DisabledLevel, IsWhatMakesTheDifference) {
  LogCapture::log().priority_mask(LogCapture::kAllLevels, ACE_Log_Msg::PROCESS);
  EXPECT_GT(allocationsOf([] { const CQOVDebugKitGuard guard(0, kLongText); }), 0);
}

}  // namespace
