#include "diag/repeats.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using qov::Repeats;
using qov::ShortRecord;

/// A record with a message, finished.
struct Made {
  explicit Made(const std::string& message, unsigned long long id = 1, const char* tag = "ERR",
                const char* kit = "KIT", const char* function = "f", unsigned int line = 2)
      : record(kit, id, tag, function, line, qov::LogForm()) {
    record.add(message);
    record.finish();
  }
  ShortRecord record;
};

class RepeatsTest : public testing::Test {
 protected:
  /// Whether it was counted; else it is remembered now.
  bool counts(const Made& made, std::int64_t nowMs = 0) {
    if (repeats_.count(made.record)) {
      return true;
    }
    repeats_.begin(repeats_.next(), made.record, nowMs);
    return false;
  }

  Repeats repeats_;
};

TEST_F(RepeatsTest, CountsARecordThatComesAgain) {
  EXPECT_FALSE(counts(Made("m")));
  EXPECT_TRUE(counts(Made("m")));
  EXPECT_TRUE(counts(Made("m")));
  EXPECT_EQ(repeats_.entries()[0].count, 2U);
}

TEST_F(RepeatsTest, TellsRecordsApartByEveryFieldButTimeAndThread) {
  EXPECT_FALSE(counts(Made("m")));
  EXPECT_FALSE(counts(Made("n")));
  EXPECT_FALSE(counts(Made("m", 2)));
  EXPECT_FALSE(counts(Made("m", 1, "WARN")));
  EXPECT_FALSE(counts(Made("m", 1, "ERR", "OTHER")));
  EXPECT_FALSE(counts(Made("m", 1, "ERR", "KIT", "g")));
  EXPECT_FALSE(counts(Made("m", 1, "ERR", "KIT", "f", 3)));
  EXPECT_TRUE(counts(Made("m")));
}

TEST_F(RepeatsTest, RemembersEightThatComeInTurnWhateverComesBetween) {
  for (int round = 0; round < 20; ++round) {
    for (int kind = 0; kind < 7; ++kind) {
      EXPECT_EQ(counts(Made("m" + std::to_string(kind))), round > 0) << round;
    }
    EXPECT_FALSE(counts(Made("new " + std::to_string(round))));
  }
}

TEST_F(RepeatsTest, KeepWhatHasComeAgainWhateverIsNew) {
  counts(Made("m"));
  EXPECT_TRUE(counts(Made("m")));
  for (int number = 0; number < 100; ++number) {
    EXPECT_FALSE(counts(Made("serial number " + std::to_string(number))));
  }
  EXPECT_TRUE(counts(Made("m")));
}

TEST_F(RepeatsTest, GiveUpTheOneThatCameLastTheLongestTimeAgo) {
  for (int kind = 0; kind < 8; ++kind) {
    counts(Made("m" + std::to_string(kind)));
  }
  EXPECT_EQ(repeats_.next().message(), "m0") << "none has come again";
  for (const int kind : {3, 0, 1, 2, 4, 5, 6, 7}) {
    EXPECT_TRUE(counts(Made("m" + std::to_string(kind))));
  }
  EXPECT_EQ(repeats_.next().message(), "m3") << "all have";
  EXPECT_FALSE(counts(Made("m8")));
  EXPECT_TRUE(counts(Made("m0")));
  EXPECT_FALSE(counts(Made("m3")));
}

TEST_F(RepeatsTest, AreOverASecondAfterTheFirst) {
  counts(Made("m"), 5000);
  counts(Made("m"), 5900);
  const Repeats::Entry& entry = repeats_.entries()[0];
  EXPECT_FALSE(entry.isOver(5999));
  EXPECT_TRUE(entry.isOver(6000));
}

TEST_F(RepeatsTest, TakeARecordThatJustFits) {
  const std::size_t origin = Made("").record.origin().size();
  const std::string longest(Repeats::kLongest - origin, 'x');
  EXPECT_FALSE(Repeats::isTooLong(Made(longest).record));
  EXPECT_TRUE(Repeats::isTooLong(Made(longest + "x").record));
  EXPECT_FALSE(counts(Made(longest)));
  EXPECT_TRUE(counts(Made(longest)));
  EXPECT_EQ(repeats_.entries()[0].message(), longest);
}

TEST_F(RepeatsTest, HaveAPlaceAgainWhenOneIsForgotten) {
  counts(Made("m"));
  repeats_.entries()[0].forget();
  EXPECT_FALSE(counts(Made("m")));
  EXPECT_EQ(repeats_.entries()[0].count, 0U);
}

}  // namespace
