#include "frame/env/failure.h"

#include <gtest/gtest.h>

#include <cerrno>

using qov::errnoText;
using qov::textOf;

TEST(FailureText, SaysWhatWhereAndWhy) {
  EXPECT_EQ(textOf({"read the configuration", "/r/conf/a/a.cfg", 12, "LOG_CFG/LogLevel", "cause"}),
            "Failed to read the configuration: /r/conf/a/a.cfg:12: LOG_CFG/LogLevel: cause");
}

TEST(FailureText, LeavesOutWhatIsEmpty) {
  EXPECT_EQ(textOf({"start", {}, 0, {}, {}}), "Failed to start");
  EXPECT_EQ(textOf({"start", "/f", 0, {}, {}}), "Failed to start: /f");
  EXPECT_EQ(textOf({"start", {}, 0, "S/K", {}}), "Failed to start: S/K");
  EXPECT_EQ(textOf({"start", {}, 0, {}, "cause"}), "Failed to start: cause");
}

TEST(FailureText, HasNoLineWithoutAFile) {
  EXPECT_EQ(textOf({"start", {}, 3, {}, "cause"}), "Failed to start: cause");
}

TEST(FailureText, NamesTheSystemsReason) {
  EXPECT_EQ(errnoText(ENOENT), "No such file or directory");
}
