#include <ace/Log_Msg_Callback.h>
#include <json/json.h>

#include <cerrno>
#include <memory>
#include <ostream>
#include <regex>
#include <string>

#include "diag/complaints.h"
#include "tests/diag/configured_log.h"

// The optional keys "LogJson" and "LogEscape".

namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class LogFormTest : public ConfiguredLog {
 protected:
  /// What the log file has, each line an object of its own.
  std::vector<Json::Value> objects() const { return objectsOf(logged()); }
  static std::vector<Json::Value> objectsOf(const std::string& text) {
    std::vector<Json::Value> all;
    for (const std::string& line : linesOf(text)) {
      Json::Value value;
      std::string errors;
      const std::unique_ptr<Json::CharReader> reader(strict().newCharReader());
      EXPECT_TRUE(reader->parse(line.data(), line.data() + line.size(), &value, &errors))
          << errors << line;
      all.push_back(value);
    }
    return all;
  }
  Json::Value object() const {
    const std::vector<Json::Value> all = objects();
    EXPECT_EQ(all.size(), 1U) << logged();
    return all.empty() ? Json::Value() : all[0];
  }

  static ACE_Log_Msg& ace() { return LogStateKeeper::log(); }

 private:
  static Json::CharReaderBuilder strict() {
    Json::CharReaderBuilder builder;
    Json::CharReaderBuilder::strictMode(&builder.settings_);
    return builder;
  }
};

TEST_F(LogFormTest, IsTheBracketedOneWithoutTheKeys) {
  applies("");
  log("a\n\"b\"\\");
  log("c");
  log("c");
  const std::string head =
      "\\[[0-9]{4}/[0-9]{2}/[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\]\\[7\\]\\[ERR\\]\\[KIT\\]"
      "\\[f,2\\]\\[\\]\\[tests_diag:[0-9]+\\] ";
  EXPECT_THAT(logged(), testing::ContainsRegex(head + "a\n\"b\"\\\\\n"));
  EXPECT_TRUE(std::regex_match(lines()[2], std::regex(head + "c"))) << lines()[2];
  EXPECT_EQ(lines().size(), 4U);
}

TEST_F(LogFormTest, IsAnObjectWithTheFieldsOfARecord) {
  applies("LogJson=1\n");
  log("m");
  const Json::Value record = object();
  EXPECT_EQ(record["id"].asUInt64(), 7U);
  EXPECT_EQ(record["level"], "ERR");
  EXPECT_EQ(record["kit"], "KIT");
  EXPECT_EQ(record["function"], "f");
  EXPECT_EQ(record["line"].asUInt64(), 2U);
  EXPECT_EQ(record["process"], "tests_diag");
  EXPECT_EQ(record["thread"].asUInt64(), static_cast<unsigned long long>(::pthread_self()));
  EXPECT_EQ(record["message"], "m");
  EXPECT_EQ(record.size(), 9U);
  EXPECT_TRUE(std::regex_match(
      record["time"].asString(),
      std::regex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}[+-][0-9]{2}:[0-9]{2}")));
}

TEST_F(LogFormTest, HasEveryMessageInJsonWhateverIsInIt) {
  applies("LogJson=1\n");
  const std::vector<std::string> messages = {"",
                                             "two\nlines\r\n",
                                             "say \"C:\\new\"",
                                             "tab\tbell\a",
                                             "caf\xC3\xA9 \xF0\x9F\x98\x80",
                                             std::string(1999, '\n'),
                                             std::string(70000, '"')};
  for (const std::string& message : messages) {
    log(message);
  }
  const std::vector<Json::Value> all = objects();
  ASSERT_EQ(all.size(), messages.size());
  for (std::size_t i = 0; i < all.size(); ++i) {
    EXPECT_EQ(all[i]["message"].asString(), messages[i]);
  }
}

TEST_F(LogFormTest, ShowsInJsonWhichBytesAreNoUtf8) {
  applies("LogJson=1\n");
  log("caf\xE9");
  EXPECT_THAT(logged(), EndsWith(",\"message\":\"caf\\u00e9\"}\n"));
  EXPECT_EQ(object()["message"], "caf\xC3\xA9");
}

TEST_F(LogFormTest, EscapesTheOtherTextsInJsonToo) {
  applies("LogJson=1\n");
  const CQOVDebugKit odd("a \"kit\"\n", 6);
  odd.error(1, "operator\"\"_x", 2, "m");
  odd.error(18446744073709551615ULL, nullptr, 2, "without a function");
  const std::vector<Json::Value> all = objects();
  ASSERT_EQ(all.size(), 2U);
  EXPECT_EQ(all[0]["kit"], "a \"kit\"\n");
  EXPECT_EQ(all[0]["function"], "operator\"\"_x");
  EXPECT_TRUE(all[1]["function"].isNull());
  EXPECT_EQ(all[1]["message"], "without a function");
  EXPECT_EQ(all[1]["id"].asUInt64(), 18446744073709551615ULL);
}

TEST_F(LogFormTest, HasALongFormattedMessageInJsonWhole) {
  applies("LogJson=1\n");
  const std::string text(65535, '\x01');
  CQOVDebugKitGuard guard(0, "f");
  guard.error(1, "f", 2, "%s", text.c_str());
  EXPECT_EQ(object()["message"], text);
}

TEST_F(LogFormTest, HasWhatIsLoggedWithoutAKitAsAnObjectOfTimeAndMessage) {
  applies("LogJson=1\n");
  ACE_ERROR((LM_ERROR, "straight to \"ACE\"\nsecond line\n"));
  *ace().msg_ostream() << "foreign" << std::endl;
  const std::vector<Json::Value> all = objects();
  ASSERT_EQ(all.size(), 2U) << logged();
  EXPECT_EQ(all[0]["message"], "straight to \"ACE\"\nsecond line");
  EXPECT_EQ(all[1]["message"], "foreign");
  EXPECT_EQ(all[1].getMemberNames(), std::vector<std::string>({"message", "time"}));
}

TEST_F(LogFormTest, KeepsAKitsRecordThatGoesThroughAceInJson) {
  applies("LogJson=1\n");
  struct Listener : ACE_Log_Msg_Callback {
    void log(ACE_Log_Record&) override {
      ++heard;
      *ace().msg_ostream() << "heard\n";
    }
    int heard = 0;
  } listener;
  ace().msg_callback(&listener);
  ace().set_flags(ACE_Log_Msg::MSG_CALLBACK);
  log("short");
  log(std::string(9000, '\n'));
  ace().msg_callback(nullptr);
  EXPECT_GT(listener.heard, 1);
  const std::vector<Json::Value> all = objects();
  ASSERT_EQ(all.size(), 2U + static_cast<unsigned>(listener.heard));
  EXPECT_EQ(all[0]["message"], "heard");
  EXPECT_EQ(all[1]["message"], "short");
  EXPECT_EQ(all.back()["message"], std::string(9000, '\n'));
  EXPECT_EQ(all.back()["id"].asUInt64(), 7U);
}

TEST_F(LogFormTest, StaysJsonWhereAceDecoratesRecords) {
  applies("LogJson=1\n");
  ace().set_flags(ACE_Log_Msg::VERBOSE_LITE);
  log("m");
  log(std::string(9000, 'x'));
  ace().clr_flags(ACE_Log_Msg::VERBOSE_LITE);
  EXPECT_THAT(objects(), Not(IsEmpty()));
}

TEST_F(LogFormTest, HoldsForStandardErrorToo) {
  configure("SendTerminal=1\nLogJson=1\n");
  testing::internal::CaptureStderr();
  init();
  log("m\n");
  const std::string shown = testing::internal::GetCapturedStderr();
  EXPECT_THAT(shown, testing::StartsWith("{\"time\":\""));
  EXPECT_THAT(shown, EndsWith(",\"message\":\"m\\n\"}\n"));
}

TEST_F(LogFormTest, TellsOfLostRecordsInJson) {
  configure("LogJson=1\n");
  const std::string later = directory_.file("later/x.log");
  testing::internal::CaptureStderr();
  strategy_.initLogStrategy(nullptr, later.c_str());
  log("lost");
  testing::internal::GetCapturedStderr();
  std::filesystem::create_directory(directory_.file("later"));
  log("m");
  const std::vector<Json::Value> all = objectsOf(qov::test::readFile(later));
  ASSERT_EQ(all.size(), 2U);
  EXPECT_EQ(all[0]["id"].asUInt64(), 65536U);
  EXPECT_THAT(all[0]["message"].asString(), EndsWith("could not be written: 2"));
  EXPECT_EQ(all[1]["message"], "m");
}

TEST_F(LogFormTest, ChangesAtOnceWhenTheSettingsAreAppliedAnew) {
  applies("");
  log("before");
  configure("LogJson=1\n");
  strategy_.reloadLogStrategy(nullptr, path_.c_str());
  log("json");
  configure("LogEscape=1\n");
  strategy_.reloadLogStrategy(nullptr, path_.c_str());
  log("a\nb");
  const std::vector<std::string> all = lines();
  ASSERT_EQ(all.size(), 5U);
  EXPECT_THAT(all[0], EndsWith("] before"));
  EXPECT_THAT(all[1], EndsWith("ChkInterval 0 s, LogJson 1\"}"));
  EXPECT_THAT(all[2], EndsWith(",\"message\":\"json\"}"));
  EXPECT_THAT(all[3], EndsWith("ChkInterval 0 s, LogEscape 1"));
  EXPECT_THAT(all[4], EndsWith("] a\\nb"));
}

TEST_F(LogFormTest, StaysWhereAReloadCannotReadTheSettings) {
  applies("LogJson=1\n");
  ProcessRoot::configure("SendTerminal=0\n");
  strategy_.reloadLogStrategy(nullptr, path_.c_str());
  EXPECT_THAT(object()["message"].asString(), HasSubstr("there is no such key"));
}

TEST_F(LogFormTest, MakesOneLineOfEachRecordWithEscapes) {
  applies("LogEscape=1\n");
  log("two\nlines\r\n");
  log("C:\\new \"x\" \x1B[0m caf\xE9");
  ACE_ERROR((LM_ERROR, "straight to ACE\nsecond\\line\n"));
  *ace().msg_ostream() << "for"
                       << "eign" << std::endl;
  EXPECT_THAT(lines(),
              ElementsAre(EndsWith("][f,2][][tests_diag:" + std::to_string(::pthread_self()) +
                                   "] two\\nlines\\r\\n"),
                          EndsWith("] C:\\\\new \"x\" \\x1b[0m caf\xE9"),
                          "straight to ACE\\nsecond\\\\line", "foreign"));
}

/// Hears what a start shows its user.
struct Heard : qov::Complaints {
  void heard(std::string_view message, bool) override { messages.emplace_back(message); }
  std::vector<std::string> messages;
};

TEST_F(LogFormTest, LeavesAStartItsPlainLines) {
  applies("LogJson=1\nLogEscape=1\nLogFold=1\n");
  Heard start;
  log("say \"C:\\new\"");
  log("say \"C:\\new\"");
  EXPECT_THAT(start.messages, ElementsAre("say \"C:\\new\"", "say \"C:\\new\""));
}

TEST_F(LogFormTest, NamesAnOddValueAndTakesTheNearest) {
  for (const char* const key : {"LogJson", "LogEscape", "LogFold"}) {
    std::filesystem::remove(path_);
    applies(std::string(key) + "=yes\n");
    EXPECT_THAT(logged(), EndsWith(std::string(": LOG_CFG/") + key +
                                   ": \"yes\" is no whole number, 0 is taken\n"));
  }
  applies("LogEscape=2\n");
  EXPECT_THAT(logged(), EndsWith(": LOG_CFG/LogEscape: \"2\" is out of range, 1 is taken\n"));
  log("a\nb");
  EXPECT_THAT(logged(), EndsWith("] a\\nb\n"));
}

TEST_F(LogFormTest, SaysNothingOfValuesInRange) {
  applies("LogJson=0\nLogEscape=1\nLogFold=0\n");
  EXPECT_EQ(logged(), "");
}

TEST_F(LogFormTest, KeepsErrno) {
  applies("LogJson=1\nLogFold=1\n");
  for (int i = 0; i < 3; ++i) {
    errno = EXDEV;
    log("m\n");
    EXPECT_EQ(errno, EXDEV);
  }
}

TEST_F(LogFormTest, LeavesTheTextThatMakeLogBuildsAsItIs) {
  applies("LogJson=1\nLogEscape=1\n");
  std::ostringstream out;
  kit_.makeLog(out, 7, "TAG", "fn", 8, std::string("a\nb"));
  EXPECT_THAT(out.str(), EndsWith("][7][TAG][KIT][fn,8][][tests_diag:" +
                                  std::to_string(::pthread_self()) + "] a\nb\n"));
}

}  // namespace
