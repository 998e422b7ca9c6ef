#include <gtest/gtest.h>
#include <qovpub/qov_utility.h>

#include <cstdlib>
#include <limits>
#include <locale>
#include <string>

namespace {

// Sets the time zone for one test.
class TimeZone {
 public:
  explicit TimeZone(const char* zone) { ::setenv("TZ", zone, 1); }
  ~TimeZone() {
    ::unsetenv("TZ");
    ::tzset();
  }
};

// Writes 1234 as 1.234.
class GroupingDigits : public std::numpunct<char> {
 protected:
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

constexpr time_t kMorning = 1'767'596'589;  // 2026-01-05 07:03:09 UTC

}  // namespace

TEST(LocalTime, IsWrittenWithTheGivenDateSeparator) {
  const TimeZone utc("UTC");
  EXPECT_EQ(UtcTimeToLocalTimeStr(0, "/"), "1970/01/01 00:00:00");
  EXPECT_EQ(UtcTimeToLocalTimeStr(kMorning, "-"), "2026-01-05 07:03:09");
  EXPECT_EQ(UtcTimeToLocalTimeStr(kMorning, ""), "20260105 07:03:09");
  EXPECT_EQ(UtcTimeToLocalTimeStr(kMorning, " - "), "2026 - 01 - 05 07:03:09");
}

TEST(LocalTime, FollowsTheTimeZone) {
  {
    const TimeZone zone("XYZ-05:30");  // five and a half hours ahead
    EXPECT_EQ(UtcTimeToLocalTimeStr(kMorning, "-"), "2026-01-05 12:33:09");
    const struct tm local = UtcTimeToLocalTime(kMorning);
    EXPECT_EQ(local.tm_year, 126);
    EXPECT_EQ(local.tm_mon, 0);
    EXPECT_EQ(local.tm_mday, 5);
    EXPECT_EQ(local.tm_hour, 12);
    EXPECT_EQ(local.tm_min, 33);
    EXPECT_EQ(local.tm_sec, 9);
  }
  const TimeZone utc("UTC");
  EXPECT_EQ(UtcTimeToLocalTime(kMorning).tm_hour, 7) << "a changed time zone counts at once";
}

TEST(LocalTime, WritesYearsOfAnyLength) {
  const TimeZone utc("UTC");
  EXPECT_EQ(UtcTimeToLocalTimeStr(-61'000'000'000, "-"), "0036-12-26 11:33:20");
  EXPECT_EQ(UtcTimeToLocalTimeStr(300'000'000'000, "-"), "11476-08-15 05:20:00");
}

TEST(LocalTime, HasOnlyZeroesForAYearThatCannotBeExpressed) {
  const struct tm local = UtcTimeToLocalTime(std::numeric_limits<time_t>::max());
  EXPECT_EQ(local.tm_year, 0);
  EXPECT_EQ(local.tm_mday, 0);
}

TEST(StrToUint, ReadsTheNumberThatTheTextStartsWith) {
  EXPECT_EQ(StrToUint("0"), 0u);
  EXPECT_EQ(StrToUint("42abc"), 42u);
  EXPECT_EQ(StrToUint(" 7"), 7u);
  EXPECT_EQ(StrToUint("\t\n 8 9"), 8u);
  EXPECT_EQ(StrToUint("+5"), 5u);
  EXPECT_EQ(StrToUint("010"), 10u) << "decimal, whatever it begins with";
  EXPECT_EQ(StrToUint("4294967295"), 4294967295u);
}

TEST(StrToUint, GivesZeroForTextThatIsNoNumber) {
  EXPECT_EQ(StrToUint(""), 0u);
  EXPECT_EQ(StrToUint("abc"), 0u);
  EXPECT_EQ(StrToUint("-"), 0u);
  EXPECT_EQ(StrToUint("   "), 0u);
}

TEST(StrToUint, KeepsTheLow32Bits) {
  EXPECT_EQ(StrToUint("4294967296"), 0u);
  EXPECT_EQ(StrToUint("4294967303"), 7u);
  EXPECT_EQ(StrToUint("18446744073709551615"), 4294967295u);
}

TEST(StrToUint, GivesTheGreatestNumberBeyond64Bits) {
  EXPECT_EQ(StrToUint("18446744073709551616"), 4294967295u);
}

TEST(StrToUint, NegatesAfterAMinusSign) {
  EXPECT_EQ(StrToUint("-1"), 4294967295u);
  EXPECT_EQ(StrToUint("-2"), 4294967294u);
}

TEST(Conversions, DoNotDependOnTheLocale) {
  const std::locale before = std::locale::global(std::locale(std::locale(), new GroupingDigits));
  EXPECT_EQ(StrToUint("1.234"), 1u);
  EXPECT_EQ(UintToStr(1234567), "1234567");
  EXPECT_EQ(IntToStr(-1234567), "-1234567");
  std::locale::global(before);
}

TEST(Conversions, WriteNumbersInDecimal) {
  EXPECT_EQ(IntToStr(0), "0");
  EXPECT_EQ(IntToStr(-2147483647 - 1), "-2147483648");
  EXPECT_EQ(IntToStr(2147483647), "2147483647");
  EXPECT_EQ(UintToStr(0), "0");
  EXPECT_EQ(UintToStr(4294967295u), "4294967295");
}

TEST(LastCharacters, AreAsManyAsAskedForOrAll) {
  EXPECT_EQ(QOV_Utility::GetLastNCharacter("abcdef", 2), "ef");
  EXPECT_EQ(QOV_Utility::GetLastNCharacter("abcdef", 5), "bcdef");
  EXPECT_EQ(QOV_Utility::GetLastNCharacter("abcdef", 6), "abcdef");
  EXPECT_EQ(QOV_Utility::GetLastNCharacter("abcdef", 7), "abcdef");
  EXPECT_EQ(QOV_Utility::GetLastNCharacter("abcdef", 10), "abcdef");
  EXPECT_EQ(QOV_Utility::GetLastNCharacter("abcdef", 0), "");
  EXPECT_EQ(QOV_Utility::GetLastNCharacter("", 3), "");
}

TEST(DigestSHA256, IsThePublishedDigestInLowerCase) {
  EXPECT_EQ(QOV_Utility::DigestSHA256(""),
            "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(QOV_Utility::DigestSHA256("abc"),
            "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(QOV_Utility::DigestSHA256("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
}

TEST(DigestSHA256, TakesEveryByteIncludingZeroes) {
  EXPECT_EQ(QOV_Utility::DigestSHA256(std::string(1, '\0')),
            "6e340b9cffb37a989ca544e6bb780a2c78901d3fb33738768511a30617afa01d");
}
