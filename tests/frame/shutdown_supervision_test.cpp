#include "frame/shutdown_supervision.h"

#include <gtest/gtest.h>

namespace {

struct GuardThatListens {
  int told = 0;
  void (*report)() = nullptr;
  void shutdownBegins() { ++told; }
  void beforeAbort(void (*what)()) { report = what; }
};

struct GuardWithoutExtras {};

}  // namespace

TEST(ShutdownSupervision, TellsAGuardThatCanHearIt) {
  GuardThatListens guard;
  qov::shutdownBegins(guard);
  EXPECT_EQ(guard.told, 1);
  static_assert(qov::HasShutdownBegins<GuardThatListens>::value);
}

TEST(ShutdownSupervision, GivesTheReportToAGuardThatCanCallIt) {
  GuardThatListens guard;
  void (*const report)() = [] {};
  qov::beforeAbort(guard, report);
  EXPECT_EQ(guard.report, report);
}

TEST(ShutdownSupervision, PassesOverAGuardThatCannot) {
  GuardWithoutExtras guard;
  qov::shutdownBegins(guard);
  qov::beforeAbort(guard, [] {});
  static_assert(!qov::HasBeforeAbort<GuardWithoutExtras>::value);
  static_assert(!qov::HasShutdownBegins<GuardWithoutExtras>::value);
}
