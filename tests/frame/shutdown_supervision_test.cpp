#include "frame/shutdown_supervision.h"

#include <gtest/gtest.h>

namespace {

struct GuardThatListens {
  int told = 0;
  void shutdownBegins() { ++told; }
};

struct GuardWithoutExtras {};

}  // namespace

TEST(ShutdownSupervision, TellsAGuardThatCanHearIt) {
  GuardThatListens guard;
  qov::shutdownBegins(guard);
  EXPECT_EQ(guard.told, 1);
  static_assert(qov::HasShutdownBegins<GuardThatListens>::value);
}

TEST(ShutdownSupervision, PassesOverAGuardThatCannot) {
  GuardWithoutExtras guard;
  qov::shutdownBegins(guard);
  static_assert(!qov::HasShutdownBegins<GuardWithoutExtras>::value);
}
