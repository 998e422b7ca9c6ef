// What is told of a module.
#include <gtest/gtest.h>

#include "modules/status/status_document.h"

namespace qov::status {
namespace {

QOVModuleStats stats(std::uint64_t workers, std::uint64_t busy, std::uint64_t bytes) {
  QOVModuleStats result;
  result.workers_ = workers;
  result.busy_ = busy;
  result.waitingBytes_ = bytes;
  result.waiting_ = bytes / 8;
  return result;
}

TEST(StatusOfAModule, IsWhatAnOperatorWantsToKnowFirst) {
  EXPECT_STREQ(stateOf(stats(2, 0, 0)), "idle");
  EXPECT_STREQ(stateOf(stats(0, 0, 0)), "idle");
  EXPECT_STREQ(stateOf(stats(2, 1, 0)), "working");
  EXPECT_STREQ(stateOf(stats(0, 0, 8)), "working");
  EXPECT_STREQ(stateOf(stats(2, 2, 0)), "busy");
  EXPECT_STREQ(stateOf(stats(2, 2, QOVModuleStats::kRoomBytes - 8)), "busy");
  EXPECT_STREQ(stateOf(stats(2, 0, QOVModuleStats::kRoomBytes)), "full");
}

}  // namespace
}  // namespace qov::status
