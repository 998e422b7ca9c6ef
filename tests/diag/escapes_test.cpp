#include "diag/escapes.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using qov::Escapes;

std::string escaped(const std::string& text, Escapes way) {
  std::string result(qov::escapedSize(text, way), '?');
  qov::escape(text, way, result.data());
  return result;
}

std::string inLine(const std::string& text) {
  return escaped(text, Escapes::kLine);
}

std::string inJson(const std::string& text) {
  return escaped(text, Escapes::kJson);
}

TEST(Escapes, LeaveAPlainTextAlone) {
  EXPECT_EQ(inLine("a 'b' \"c\" \x7E\xC3\xA9\xFF"), "a 'b' \"c\" \x7E\xC3\xA9\xFF");
  EXPECT_EQ(inJson("a 'b' /c\x7E \x7F\xC3\xA9"), "a 'b' /c\x7E \x7F\xC3\xA9");
  EXPECT_EQ(inLine(""), "");
}

TEST(Escapes, MakeOneLineOfAText) {
  EXPECT_EQ(inLine("a\nb\r\n"), "a\\nb\\r\\n");
  EXPECT_EQ(inLine("\x01\t\x1B[0m\x1F\x7F"), "\\x01\\x09\\x1b[0m\\x1f\\x7f");
  EXPECT_EQ(inLine("C:\\new"), "C:\\\\new");
}

TEST(Escapes, MakeAJsonStringOfAText) {
  EXPECT_EQ(inJson("a\nb\r\n"), "a\\nb\\r\\n");
  EXPECT_EQ(inJson("\x01\t\x1B\x1F"), "\\u0001\\u0009\\u001b\\u001f");
  EXPECT_EQ(inJson("say \"C:\\new\""), "say \\\"C:\\\\new\\\"");
}

TEST(Escapes, KeepInJsonTheFirstAndLastCharacterOfEachLength) {
  for (const char* const valid :
       {"\xC2\x80", "\xDF\xBF", "\xE0\xA0\x80", "\xED\x9F\xBF", "\xEE\x80\x80", "\xEF\xBF\xBF",
        "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF"}) {
    EXPECT_EQ(inJson(valid), valid);
  }
}

TEST(Escapes, WriteEachByteThatIsNoUtf8AsItsNumberInJson) {
  EXPECT_EQ(inJson("\x80"), "\\u0080") << "a continuation alone";
  EXPECT_EQ(inJson("caf\xE9!"), "caf\\u00e9!") << "Latin-1";
  EXPECT_EQ(inJson("\xC1\xBF"), "\\u00c1\\u00bf") << "too long a form";
  EXPECT_EQ(inJson("\xE0\x9F\xBF"), "\\u00e0\\u009f\\u00bf") << "too long a form";
  EXPECT_EQ(inJson("\xF0\x8F\xBF\xBF"), "\\u00f0\\u008f\\u00bf\\u00bf") << "too long a form";
  EXPECT_EQ(inJson("\xED\xA0\x80"), "\\u00ed\\u00a0\\u0080") << "a surrogate";
  EXPECT_EQ(inJson("\xF4\x90\x80\x80"), "\\u00f4\\u0090\\u0080\\u0080") << "beyond 10FFFF";
  EXPECT_EQ(inJson("\xF5\x80\x80\x80"), "\\u00f5\\u0080\\u0080\\u0080");
  EXPECT_EQ(inJson("\xE2\x82"), "\\u00e2\\u0082") << "cut";
  EXPECT_EQ(inJson("\xE2\x82\n"), "\\u00e2\\u0082\\n") << "cut by a line's end";
  EXPECT_EQ(inJson("\xF0\x9F\x98z"), "\\u00f0\\u009f\\u0098z");
}

TEST(Escapes, WorkInPlaceWhereBothTextsEndTogether) {
  const std::string text =
      "\n\"a\x01\xFF"
      "b\\";
  for (const Escapes way : {Escapes::kLine, Escapes::kJson}) {
    const std::size_t size = qov::escapedSize(text, way);
    std::string place = std::string(size - text.size(), '?') + text;
    qov::escape(std::string_view(place).substr(size - text.size()), way, place.data());
    EXPECT_EQ(place, escaped(text, way));
  }
}

}  // namespace
