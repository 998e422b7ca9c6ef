#include "task/thread_name.h"

#include <gtest/gtest.h>

namespace {

using qov::ThreadName;

TEST(ThreadName, SaysModuleAndRole) {
  EXPECT_STREQ(ThreadName(20, "leader").text(), "m20-leader");
  EXPECT_STREQ(ThreadName(20, "worker", 3).text(), "m20-worker-3");
}

TEST(ThreadName, OfFifteenCharactersIsWhole) {
  EXPECT_STREQ(ThreadName(255, "worker", 999).text(), "m255-worker-999");
}

TEST(ThreadName, OfMoreKeepsTheFirstLetterOfItsRole) {
  EXPECT_STREQ(ThreadName(255, "worker", 1000).text(), "m255-w-1000");
}

TEST(ThreadName, ThatIsTooLongEvenSoLosesItsEnd) {
  EXPECT_STREQ(ThreadName(4294967295U, "worker", 123456).text(), "m4294967295-w-1");
}

TEST(ThreadName, GivenByAModuleKeepsFifteenCharacters) {
  EXPECT_STREQ(ThreadName("fifteen-letters").text(), "fifteen-letters");
  EXPECT_STREQ(ThreadName("fifteen-letters+").text(), "fifteen-letters");
}

}  // namespace
