#include <gtest/gtest.h>
#include <qovpub/qov_exception.h>

#include <string>
#include <type_traits>

TEST(Exception, PutsItsNameInFrontOfTheMessage) {
  EXPECT_STREQ(CQOV_Exception("can't make config").what(), "CQOV_Exception: can't make config");
  EXPECT_STREQ(CQOV_Exception("").what(), "CQOV_Exception: ");
}

TEST(Exception, IsCaughtAsAStandardException) {
  try {
    throw CQOV_Exception("wrong type");
  } catch (const std::exception& caught) {
    EXPECT_STREQ(caught.what(), "CQOV_Exception: wrong type");
  }
}

TEST(Exception, IsCopiedWithoutThrowing) {
  static_assert(std::is_nothrow_copy_constructible_v<CQOV_Exception>);
  static_assert(std::is_nothrow_copy_assignable_v<CQOV_Exception>);
  const std::string longMessage(10'000, 'm');
  const CQOV_Exception original(longMessage);
  CQOV_Exception copy = original;
  EXPECT_EQ(copy.what(), "CQOV_Exception: " + longMessage);
  copy = CQOV_Exception("other");
  EXPECT_STREQ(copy.what(), "CQOV_Exception: other");
}
