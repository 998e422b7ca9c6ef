#include "module/last_words.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/failing_threads.h"

namespace {

using ::testing::HasSubstr;

TEST(LastWords, AreSpokenWithoutAThread) {
  const qov::test::FailingThreads none(0);
  ::testing::internal::CaptureStderr();
  qov::tellLastWords(1, {"that is why"});
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("that is why\n"));
  EXPECT_EQ(none.failures(), 0);
}

}  // namespace
