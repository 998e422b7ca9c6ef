#include <gtest/gtest.h>
#include <json/value.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_msg.h>

#include <string>

namespace {

std::string bytesOf(const CTLVCell& cell) {
  return {reinterpret_cast<const char*>(cell.value()), cell.length()};
}

CTLVCell arrayCell(const std::string& text) {
  return CTLVCell(CTLVCell::TLV_ARRAY, 1, text.data(), text.size());
}

CTLVCell jsonCell(const std::string& text) {
  return CTLVCell(CTLVCell::TLV_JSON, 1, text.data(), text.size());
}

std::string nested(int levels) {
  return std::string(static_cast<std::size_t>(levels), '[') +
         std::string(static_cast<std::size_t>(levels), ']');
}

TEST(JsonCell, StoresAStringAsQuotedTextWithItsNul) {
  CTLVCell cell;
  cell.set(5, Json::Value("a"));
  EXPECT_EQ(bytesOf(cell), std::string("\"a\"\0", 4));
  EXPECT_EQ(cell.type(), CTLVCell::TLV_JSON);
  EXPECT_EQ(cell.tag(), 5);
}

TEST(JsonCell, StoresAnArrayUnderATypeOfItsOwn) {
  CTLVCell cell;
  cell.set(5, Json::Value(Json::arrayValue));
  EXPECT_EQ(bytesOf(cell), std::string("[]\0", 3));
  EXPECT_EQ(cell.type(), CTLVCell::TLV_ARRAY);
}

TEST(JsonCell, RefusesATagAbove4095) {
  CTLVCell cell;
  EXPECT_THROW(cell.set(4096, Json::Value(1)), CQOV_Exception);
}

TEST(JsonCell, TakesATextOf65535BytesAndNoLonger) {
  CTLVCell cell;
  cell.set(1, Json::Value(std::string(65532, 'x')));
  EXPECT_EQ(cell.length(), 65535);
  EXPECT_THROW(cell.set(1, Json::Value(std::string(65533, 'x'))), CQOV_Exception);
}

TEST(JsonCell, GivesItsValueBack) {
  Json::Value v;
  v["name"] = "eth0";
  v["mtu"] = 1500;
  CTLVCell cell;
  cell.setJson(1, v);
  Json::Value got;
  ASSERT_TRUE(cell.getJson(got));
  EXPECT_EQ(got, v);
  EXPECT_EQ(cell.getJson(), v);
  EXPECT_FALSE(cell.getArray(got));
}

TEST(JsonCell, LeavesTheResultUntouchedWhenTheTypeIsAnother) {
  Json::Value got("kept");
  EXPECT_FALSE(arrayCell("[1]").getJson(got));
  EXPECT_FALSE(jsonCell("1").getArray(got));
  EXPECT_FALSE(CTLVCell(CTLVCell::TLV_STRING, 1, "1", 2).getJson(got));
  EXPECT_EQ(got, Json::Value("kept"));
}

TEST(JsonCell, AnswersFalseForTextThatIsNotJson) {
  Json::Value got("kept");
  EXPECT_FALSE(jsonCell("{\"a\":").getJson(got));
  EXPECT_FALSE(arrayCell("[1,").getArray(got));
  EXPECT_EQ(got, Json::Value("kept"));
  EXPECT_THROW(jsonCell("{\"a\":").getJson(), CQOV_Exception);
}

TEST(JsonCell, ParsesNestingUpToTheLibrarysLimit) {
  Json::Value got;
  EXPECT_TRUE(arrayCell(nested(1000)).getArray(got));
  EXPECT_TRUE(jsonCell(nested(1000)).getJson(got));
}

TEST(JsonCell, AnswersFalseForDeeperNesting) {
  Json::Value got;
  EXPECT_FALSE(arrayCell(nested(1001)).getArray(got));
  EXPECT_FALSE(jsonCell(nested(30000)).getJson(got));
  EXPECT_THROW(jsonCell(nested(1001)).getJson(), CQOV_Exception);
}

TEST(JsonCell, SaysNothingOfAnArrayThatIsNestedTooDeep) {
  const CTLVCell deep = arrayCell(nested(1001));
  EXPECT_EQ(deep.toString(), "");
  EXPECT_EQ(deep.buildArrayValue(deep), "");
}

TEST(JsonCell, NeedsNoNulBehindItsText) {
  Json::Value got;
  ASSERT_TRUE(jsonCell("12").getJson(got));
  EXPECT_EQ(got.asInt(), 12);
  // The text ends at its NUL although the value goes on.
  ASSERT_TRUE(jsonCell(std::string("12\0]34", 6)).getJson(got));
  EXPECT_EQ(got.asInt(), 12);
}

TEST(JsonCell, ReadsNothingBehindItsText) {
  CTLVCell cell(CTLVCell::TLV_JSON, 1, "[1,2,3,4,5,6,7,8,9]", 19);
  cell.set_i(CTLVCell::TLV_JSON, 1, "[1,2,3,4,5", 10);
  Json::Value got;
  EXPECT_FALSE(cell.getJson(got));
  EXPECT_FALSE(jsonCell(std::string("\"a\0b\"", 5)).getJson(got));
}

TEST(JsonCell, KeepsTheCommentsOfItsText) {
  Json::Value got;
  ASSERT_TRUE(jsonCell("// why\n1").getJson(got));
  EXPECT_EQ(got.getComment(Json::commentBefore), "// why");
}

TEST(JsonCell, WritesAnIntegerOf31BitsTwice) {
  EXPECT_EQ(arrayCell("[1,2]").toString(), "11,22");
  EXPECT_EQ(arrayCell("[2147483647]").toString(), "21474836472147483647");
}

TEST(JsonCell, WritesAnIntegerThatIsSignedOrUnsignedOnlyOnce) {
  EXPECT_EQ(arrayCell("[-1]").toString(), "-1");
  EXPECT_EQ(arrayCell("[2147483648]").toString(), "2147483648");
  EXPECT_EQ(arrayCell("[4294967295]").toString(), "4294967295");
}

TEST(JsonCell, TakesAWholeRealForTheIntegerThatTheLibraryTakesItFor) {
  EXPECT_EQ(arrayCell("[1.0,-2.0,3e9,5e9]").toString(), "11,-2,3000000000,");
}

TEST(JsonCell, WritesOnlyTheSeparatorOfOtherElements) {
  EXPECT_EQ(arrayCell("[true,null,1.5,{},[7],4294967296]").toString(), ",,,,,");
  EXPECT_EQ(arrayCell("[\"a\",false,\"b\"]").toString(), "a,,b");
  EXPECT_EQ(arrayCell("[]").toString(), "");
}

TEST(JsonCell, SaysNothingOfAnArrayCellThatHoldsNoArray) {
  EXPECT_EQ(arrayCell("{\"a\":1}").toString(), "");
  EXPECT_EQ(arrayCell("\"text\"").toString(), "");
  EXPECT_EQ(arrayCell("nonsense").toString(), "");
}

TEST(JsonCell, SaysJsonTextAsItIs) {
  EXPECT_EQ(jsonCell("{\"a\":1}").toString(), "{\"a\":1}");
}

}  // namespace
