#include <gtest/gtest.h>
#include <qovpub/qov_version.h>

#include <string>

TEST(Version, OfTheHeaderIsThatOfTheBuild) {
  EXPECT_STREQ(QOVPUB_VERSION_STRING, QOV_PROJECT_VERSION);
}

TEST(Version, HasTheNumbersOfItsText) {
  EXPECT_EQ(std::to_string(QOVPUB_VERSION_MAJOR) + "." + std::to_string(QOVPUB_VERSION_MINOR) +
                "." + std::to_string(QOVPUB_VERSION_PATCH),
            QOVPUB_VERSION_STRING);
}

TEST(Version, OfTheRunningLibraryIsTold) {
  EXPECT_STREQ(QOV_Version(), QOV_PROJECT_VERSION);
}
