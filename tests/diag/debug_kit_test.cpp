#include <gmock/gmock.h>
#include <pthread.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_utility.h>

#include <cerrno>
#include <cstdarg>
#include <ctime>

#include "tests/diag/log_capture.h"

namespace {

using testing::AnyOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;

std::string processName() {
  std::string name;
  CProcInfo::getProcName(name);
  return name;
}

/// The fields behind the message's origin, as this thread's records have them.
std::string tail() {
  return "[][" + processName() + ":" + std::to_string(pthread_self()) + "] ";
}

class DebugKit : public testing::Test {
 protected:
  /// Unchecked by the compiler, so that bad formats can be passed.
  void infoF(const char* format, ...) {
    va_list args;
    va_start(args, format);
    kit_.info(7, "fn", 8, format, args);
    va_end(args);
  }

  __attribute__((format(printf, 3, 4))) void makeLogF(std::ostringstream& out, const char* format,
                                                      ...) {
    va_list args;
    va_start(args, format);
    kit_.makeLog(out, 7, "TAG", "fn", 8, format, args);
    va_end(args);
  }

  /// The captured text behind its time field.
  std::string afterTime() const {
    const std::string text = capture_.text();
    return text.substr(std::min(text.size(), sizeof("[2026/11/13 19:50:30]") - 1));
  }

  const CQOVDebugKit kit_{"KIT", 5};
  LogCapture capture_;
};

TEST_F(DebugKit, WritesOneRecordOfTheFixedLayout) {
  kit_.error(65556, "svc", 377, "Copy message error!");
  EXPECT_EQ(afterTime(), "[65556][ERR][KIT][svc,377]" + tail() + "Copy message error!\n");
  EXPECT_THAT(capture_.text(),
              MatchesRegex("\\[[0-9]{4}/[0-9]{2}/[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\](.|\n)*"));
}

TEST_F(DebugKit, GivesEachLevelItsTag) {
  kit_.debug(1, "f", 2, "m");
  kit_.info(1, "f", 2, "m");
  kit_.warn(1, "f", 2, "m");
  kit_.error(1, "f", 2, "m");
  kit_.critical(1, "f", 2, "m");
  std::string tags;
  std::istringstream lines(capture_.text());
  for (std::string line; std::getline(lines, line);) {
    const size_t from = line.find("[1][") + 4;
    tags += line.substr(from, line.find(']', from) - from) + " ";
  }
  EXPECT_EQ(tags, "DBG INFO WARN ERR CRI ");
}

TEST_F(DebugKit, TracesWithAllBitsOfTheLogIdAndWithoutAnOrigin) {
  kit_.trace("in and out");
  EXPECT_EQ(afterTime(), "[18446744073709551615][TRACE][KIT][,0]" + tail() + "in and out\n");
}

TEST_F(DebugKit, HasThreeFormsOfEachLevel) {
  const auto format = [](auto level, const char* text, ...) {
    va_list args;
    va_start(args, text);
    level(text, args);
    va_end(args);
  };
  const auto logThrice = [&](const char* tag, auto level) {
    capture_.clear();
    level(std::string("m"));
    level("m");
    EXPECT_EQ(capture_.lines(), 2);
    for (size_t at = 0; (at = capture_.text().find("[KIT]", at)) != std::string::npos; ++at) {
      EXPECT_EQ(capture_.text().substr(0, at).rfind(tag), at - std::string(tag).size());
    }
  };
  logThrice("[CRI]", [this](const auto& message) { kit_.critical(1, "f", 2, message); });
  logThrice("[ERR]", [this](const auto& message) { kit_.error(1, "f", 2, message); });
  logThrice("[WARN]", [this](const auto& message) { kit_.warn(1, "f", 2, message); });
  logThrice("[DBG]", [this](const auto& message) { kit_.debug(1, "f", 2, message); });
  capture_.clear();
  format([this](const char* text, va_list args) { kit_.critical(1, "f", 2, text, args); }, "%d", 3);
  EXPECT_EQ(afterTime(), "[1][CRI][KIT][f,2]" + tail() + "3\n");
}

TEST_F(DebugKit, TakesStringsLiteralsAndFormats) {
  kit_.info(1, "f", 2, std::string("string"));
  kit_.info(1, "f", 2, "literal");
  infoF("%s %d", "format", 3);
  EXPECT_THAT(capture_.text(), HasSubstr("] string\n"));
  EXPECT_THAT(capture_.text(), HasSubstr("] literal\n"));
  EXPECT_THAT(capture_.text(), HasSubstr("] format 3\n"));
}

struct LevelBit {
  const char* name;
  u_long bit;
  void (*log)(const CQOVDebugKit&);
};

class DebugKitLevel : public testing::TestWithParam<LevelBit> {};

TEST_P(DebugKitLevel, PassesWithItsOwnBitOnly) {
  const CQOVDebugKit kit("KIT", 5);
  const LogCapture on(GetParam().bit);
  GetParam().log(kit);
  EXPECT_EQ(on.lines(), 1);
  const LogCapture off(LogCapture::kAllLevels & ~GetParam().bit);
  GetParam().log(kit);
  EXPECT_EQ(off.text(), "");
}

INSTANTIATE_TEST_SUITE_P(
    All, DebugKitLevel,
    testing::Values(
        LevelBit{"Trace", 0x002, [](const CQOVDebugKit& kit) { kit.trace("m"); }},
        LevelBit{"Debug", 0x004, [](const CQOVDebugKit& kit) { kit.debug(1, "f", 2, "m"); }},
        LevelBit{"Info", 0x008, [](const CQOVDebugKit& kit) { kit.info(1, "f", 2, "m"); }},
        LevelBit{"Warn", 0x020, [](const CQOVDebugKit& kit) { kit.warn(1, "f", 2, "m"); }},
        LevelBit{"Error", 0x080, [](const CQOVDebugKit& kit) { kit.error(1, "f", 2, "m"); }},
        LevelBit{"Critical", 0x100, [](const CQOVDebugKit& kit) { kit.critical(1, "f", 2, "m"); }}),
    [](const auto& each) { return std::string(each.param.name); });

TEST_F(DebugKit, TestsTheProcessMaskAndNotTheThreadsOwn) {
  LogCapture::log().priority_mask(LM_ERROR, ACE_Log_Msg::PROCESS);
  const u_long before = LogCapture::log().priority_mask(LM_DEBUG, ACE_Log_Msg::THREAD);
  kit_.debug(1, "f", 2, "m");
  LogCapture::log().priority_mask(before, ACE_Log_Msg::THREAD);
  EXPECT_EQ(capture_.text(), "");
}

TEST_F(DebugKit, SaysWhichLevelsAreOn) {
  LogCapture::log().priority_mask(LM_ERROR | LM_INFO, ACE_Log_Msg::PROCESS);
  EXPECT_TRUE(CQOVDebugKit::isOn(LM_INFO));
  EXPECT_FALSE(CQOVDebugKit::isOn(LM_DEBUG));
}

TEST_F(DebugKit, DoesNotTouchTheArgumentsOfADisabledLevel) {
  LogCapture::log().priority_mask(LM_ERROR, ACE_Log_Msg::PROCESS);
  const char* const unreadable = reinterpret_cast<const char*>(1);
  infoF("%s", unreadable);
  EXPECT_EQ(capture_.text(), "");
}

TEST_F(DebugKit, LeavesErrnoAlone) {
  capture_.stream().setstate(std::ios_base::badbit);
  for (const int value : {0, ENOENT}) {
    errno = value;
    infoF("%d", 1);
    kit_.info(1, "f", 2, "m");
    EXPECT_EQ(errno, value);
  }
}

TEST_F(DebugKit, TellsAceWhereTheRecordComesFrom) {
  errno = EBADF;
  kit_.info(1, "f", 2, "m");
  EXPECT_STREQ(LogCapture::log().file(), "qov_common_debugkit");
  EXPECT_EQ(LogCapture::log().op_status(), 0);
  EXPECT_EQ(LogCapture::log().errnum(), EBADF);
}

TEST_F(DebugKit, EndsAMessageAtItsFirstNul) {
  kit_.info(1, "f", 2, std::string("seen\0unseen", 11));
  EXPECT_THAT(capture_.text(), EndsWith("] seen\n"));
}

TEST_F(DebugKit, TakesANullMessageForAnEmptyOne) {
  kit_.info(1, "f", 2, static_cast<const char*>(nullptr));
  EXPECT_THAT(capture_.text(), EndsWith(":" + std::to_string(pthread_self()) + "] \n"));
}

TEST_F(DebugKit, CarriesOnlyTheFieldsBeforeANullFunction) {
  kit_.info(65536, nullptr, 2, "m");
  EXPECT_EQ(afterTime(), "[65536][INFO][KIT][\n");
}

TEST_F(DebugKit, WritesNamesOfAnyLengthWhole) {
  const std::string name(5000, 'n');
  const std::string function(3000, 'f');
  CQOVDebugKit(name, 6).info(1, function.c_str(), 2, "m");
  EXPECT_EQ(afterTime(), "[1][INFO][" + name + "][" + function + ",2]" + tail() + "m\n");
}

TEST_F(DebugKit, FormatsAMessageOfTheGreatestLengthWhole) {
  const std::string longest(65535, 'x');
  infoF("%s", longest.c_str());
  EXPECT_THAT(capture_.text(), EndsWith("] " + longest + "\n"));
}

TEST_F(DebugKit, CutsALongerFormattedMessageToItsFirst65535Characters) {
  const std::string tooLong = std::string(65534, 'x') + "yz";
  infoF("%s", tooLong.c_str());
  EXPECT_THAT(capture_.text(), EndsWith("] " + std::string(65534, 'x') + "y\n"));
}

TEST_F(DebugKit, LogsWhatWasPrintedBeforeAConversionFailed) {
  const wchar_t unprintable[] = {static_cast<wchar_t>(0x7FFFFFFF), 0};
  infoF("before %ls after", unprintable);
  EXPECT_THAT(capture_.text(), EndsWith("] before \n"));
}

TEST_F(DebugKit, NeverObeysAConversionThatStores) {
  int stored = -1;
  infoF("100%% of %d%n and more", 5, &stored);
  EXPECT_EQ(stored, -1);
  EXPECT_THAT(capture_.text(), EndsWith("] 100% of 5\n"));
  capture_.clear();
  long storedLong = -1;
  infoF("%-5.3ln", &storedLong);
  EXPECT_EQ(storedLong, -1);
  EXPECT_THAT(capture_.text(), EndsWith("] \n"));
}

TEST_F(DebugKit, PrintsAFormatThatOnlyLooksLikeAStore) {
  infoF("100%%n done");
  EXPECT_THAT(capture_.text(), EndsWith("] 100%n done\n"));
}

TEST_F(DebugKit, SurvivesAFormatThatEndsInsideAConversion) {
  infoF("ends in %");
  EXPECT_EQ(capture_.lines(), 1);
}

TEST_F(DebugKit, TakesANullFormatForAnEmptyMessage) {
  const char* volatile none = nullptr;
  va_list args{};
  kit_.info(1, "f", 2, none, args);
  EXPECT_THAT(capture_.text(), EndsWith("] \n"));
}

TEST_F(DebugKit, MakesTheRecordThatItWouldWrite) {
  std::ostringstream out;
  kit_.makeLog(out, 7, "TAG", "fn", 8, "message");
  const size_t behindTime = out.str().find("][");
  EXPECT_EQ(out.str().substr(behindTime), "][7][TAG][KIT][fn,8]" + tail() + "message\n");
  std::ostringstream formatted;
  makeLogF(formatted, "mess%s", "age");
  EXPECT_EQ(formatted.str().substr(behindTime), out.str().substr(behindTime));
  EXPECT_EQ(capture_.text(), "");
}

TEST_F(DebugKit, MakesARecordOfAMessageWithNulsWhole) {
  std::ostringstream out;
  kit_.makeLog(out, 7, "TAG", "fn", 8, std::string("a\0b", 3));
  EXPECT_THAT(out.str(), EndsWith(std::string("] a\0b\n", 6)));
}

TEST_F(DebugKit, LeavesTheStreamBadBehindTheFieldsBeforeANullOne) {
  std::ostringstream noTag;
  kit_.makeLog(noTag, 7, nullptr, "fn", 8, "m");
  EXPECT_TRUE(noTag.bad());
  EXPECT_THAT(noTag.str(), EndsWith("][7]["));
  std::ostringstream noFunction;
  kit_.makeLog(noFunction, 7, "TAG", nullptr, 8, "m");
  EXPECT_TRUE(noFunction.bad());
  EXPECT_THAT(noFunction.str(), EndsWith("][7][TAG][KIT]["));
}

TEST_F(DebugKit, PrintsTheCurrentSecondInLocalTime) {
  const time_t before = time(nullptr);
  const std::string text = kit_.makeLogTime();
  const time_t after = time(nullptr);
  std::vector<std::string> possible;
  for (time_t second = before; second <= after; ++second) {
    possible.push_back(UtcTimeToLocalTimeStr(second, "/"));
  }
  EXPECT_THAT(possible, testing::Contains(text));
}

TEST_F(DebugKit, FollowsAChangeOfTheTimeZone) {
  const auto recordTime = [this](const char* zone) {
    setenv("TZ", zone, 1);
    tzset();
    capture_.clear();
    const time_t before = time(nullptr);
    kit_.info(1, "f", 2, "m");
    const time_t after = time(nullptr);
    EXPECT_THAT(capture_.text().substr(1, 19),
                AnyOf(UtcTimeToLocalTimeStr(before, "/"), UtcTimeToLocalTimeStr(after, "/")));
    return capture_.text().substr(1, 19);
  };
  const char* const zone = getenv("TZ");
  const std::string kept = zone != nullptr ? zone : "";
  EXPECT_NE(recordTime("UTC0"), recordTime("XXX-7"));
  zone != nullptr ? setenv("TZ", kept.c_str(), 1) : unsetenv("TZ");
  tzset();
}

}  // namespace
