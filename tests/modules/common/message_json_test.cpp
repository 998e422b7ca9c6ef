#include "modules/common/message_json.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qovpub/qov_exception.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "modules/common/json_object.h"
#include "tests/msg/bytes.h"

using namespace std::string_literals;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Lt;
using ::testing::SizeIs;
using ::testing::StartsWith;

namespace qov::common {
namespace {

using tests::Bytes;

/// JSON, with ' in the place of the quotes.
Json::Value json(std::string text) {
  for (char& c : text) {
    c = c == '\'' ? '"' : c;
  }
  return parseJson(text);
}

CTLVCell cell(CTLVCell::ETLVType type, const std::string& bytes) {
  return CTLVCell(type, 7, bytes.data(), bytes.size());
}

std::string bytesOf(const CTLVCell& c) {
  return {reinterpret_cast<const char*>(c.value()), c.length()};
}

/// The value that a cell of these bytes is shown with.
Json::Value shown(CTLVCell::ETLVType type, const std::string& bytes) {
  return toJson(cell(type, bytes))["value"];
}

/// The same of bytes that are what is read back.
Json::Value kept(CTLVCell::ETLVType type, const std::string& bytes) {
  const CTLVCell c = cell(type, bytes);
  const Json::Value written = toJson(c);
  EXPECT_EQ(written["tag"], 7);
  EXPECT_EQ(written["length"], jsonNumber(bytes.size()));
  EXPECT_EQ(cellFromJson(parseJson(jsonText(written)), ""), c) << jsonText(written);
  return written["value"];
}

/// The bytes that are made of a cell of this type and value.
std::string made(const std::string& type, const std::string& value) {
  return bytesOf(cellFromJson(json("{'tag':7,'type':'" + type + "','value':" + value + "}"), ""));
}

std::string madeOf(const std::string& type, const std::string& value, int length) {
  return bytesOf(cellFromJson(json("{'tag':7,'type':'" + type + "','value':" + value +
                                   ",'length':" + std::to_string(length) + "}"),
                              ""));
}

/// What reading the JSON is refused with, or nothing.
template <class Read>
std::string complaint(const Read& read) {
  try {
    read();
  } catch (const BadJson& e) {
    return e.what();
  }
  return "";
}

std::string cellComplaint(const std::string& text) {
  return complaint([&] { cellFromJson(json(text), "cells[3]"); });
}

std::string recordComplaint(const std::string& text) {
  return complaint([&] { recordFromJson(json(text), "records[1]"); });
}

std::string v3Complaint(const std::string& text) {
  CT7QPackageV3 message;
  return complaint([&] { fromJson(json(text), "messages[0]", message); });
}

std::string internalComplaint(const std::string& text) {
  CQOV_MsgPackage message;
  return complaint([&] { fromJson(json(text), "messages[0]", message); });
}

template <class Package>
std::vector<unsigned char> encoded(Package& message) {
  unsigned char* bytes = nullptr;
  const unsigned int size = message.encode(bytes);
  EXPECT_NE(size, Package::kFailed);
  const std::unique_ptr<unsigned char[]> own(bytes);
  return {bytes, bytes + size};
}

/// An OM message to decode into.
struct OmMessage : CQOV_OM_MsgPackage {
  OmMessage() : CQOV_OM_MsgPackage(nullptr) {}
};

template <class Package>
Json::Value meaningOf(Bytes bytes) {
  Package message;
  EXPECT_NE(message.decode(bytes.begin(), bytes.size()), Package::kFailed);
  return toJson(message);
}

template <class Package>
std::vector<unsigned char> bytesOfMeaning(const Json::Value& meaning) {
  Package message;
  fromJson(parseJson(jsonText(meaning)), "", message);
  return encoded(message);
}

TEST(CellJson, ShowsOctetsAndTypelessBytesInHexadecimalDigits) {
  EXPECT_EQ(kept(CTLVCell::TLV_OCTET, "\x00\x01\xab\xff"s), "0001abff");
  EXPECT_EQ(kept(CTLVCell::TLV_INVALID, "\x0f"), "0f");
  EXPECT_EQ(kept(CTLVCell::TLV_INVALID, ""), "");
}

TEST(CellJson, ShowsTextWithoutItsNul) {
  EXPECT_EQ(kept(CTLVCell::TLV_STRING, "abc\0"s), "abc");
  EXPECT_EQ(kept(CTLVCell::TLV_STRING, "\0"s), "");
  EXPECT_EQ(kept(CTLVCell::TLV_STRING, "a\"\n\x01\0"s), "a\"\n\x01");
  EXPECT_EQ(kept(CTLVCell::TLV_STRING, "Z\xc3\xbcrich \xf0\x9f\x8c\x8d\0"s),
            "Z\xc3\xbcrich \xf0\x9f\x8c\x8d");
}

TEST(CellJson, EscapesWhatWouldSteerATerminal) {
  const std::string bytes = "\x1b\x7f\xc2\x80\xc2\x9f\xc2\xa0\0"s;
  EXPECT_EQ(kept(CTLVCell::TLV_STRING, bytes), "\x1b\x7f\xc2\x80\xc2\x9f\xc2\xa0");
  EXPECT_THAT(jsonText(toJson(cell(CTLVCell::TLV_STRING, bytes))),
              HasSubstr("\"\\u001b\\u007f\\u0080\\u009f\xc2\xa0\""));
}

TEST(CellJson, EscapesWhatWouldTurnTheDirectionOfWriting) {
  const std::string bytes = "\xd8\x9c\xe2\x80\x8f\xe2\x80\xae\xe2\x81\xa9\xe2\x80\xaf\0"s;
  EXPECT_THAT(jsonText(toJson(cell(CTLVCell::TLV_STRING, bytes))),
              HasSubstr("\"\\u061c\\u200f\\u202e\\u2069\xe2\x80\xaf\""));
}

TEST(CellJson, ShowsTheBytesOfATextThatIsNone) {
  for (const std::string& bytes : {"abc"s, "a\0b\0"s, "a\0b"s, "\xff\0"s, "\xc3\0"s, "\xc0\x80\0"s,
                                   "\xed\xa0\x80\0"s, "\xf4\x90\x80\x80\0"s, "\xe2\x82\0"s}) {
    EXPECT_TRUE(kept(CTLVCell::TLV_STRING, bytes).isMember("octets")) << bytes;
  }
  EXPECT_EQ(kept(CTLVCell::TLV_STRING, "abc")["octets"], "616263");
}

TEST(CellJson, ShowsNumbersOfEveryWidthAsTheLibraryReadsThem) {
  EXPECT_EQ(kept(CTLVCell::TLV_UINT, "\xff"), 255);
  EXPECT_EQ(kept(CTLVCell::TLV_INT, "\xff"), -1);
  EXPECT_EQ(kept(CTLVCell::TLV_INT, "\xff\xff\xff"), 0xFFFFFF);
  EXPECT_EQ(kept(CTLVCell::TLV_INT, "\xfe\xff\xff\xff"), -2);
  EXPECT_EQ(kept(CTLVCell::TLV_INT, "\xff\xff\xff\xff\xff"), Json::Int64{0xFFFFFFFFFF});
  EXPECT_EQ(kept(CTLVCell::TLV_INT, std::string(7, '\xff')), Json::Int64{0xFFFFFFFFFFFFFF});
  EXPECT_EQ(kept(CTLVCell::TLV_INT, "\0\0\0\0\0\0\0\x80"s), Json::Value::minInt64);
  EXPECT_EQ(kept(CTLVCell::TLV_TIME, std::string(8, '\xff')), Json::Value::maxUInt64);
  EXPECT_EQ(kept(CTLVCell::TLV_BOOL, "\x02"), 2);
  EXPECT_EQ(kept(CTLVCell::TLV_ENUM, "\x01\x02"), 0x0201);
  EXPECT_EQ(kept(CTLVCell::TLV_UINT, "\x05\0\0\0"s), 5);
}

TEST(CellJson, ShowsOfALongNumberWhatIsRead) {
  EXPECT_EQ(kept(CTLVCell::TLV_UINT, "\x01\0\0\0\0\0\0\0\0"s), 1);
  EXPECT_EQ(shown(CTLVCell::TLV_UINT, "\x01\0\0\0\0\0\0\0\x02"s), 1);
  EXPECT_EQ(shown(CTLVCell::TLV_INT, std::string(9, '\xff')), -1);
}

TEST(CellJson, ShowsAnEmptyValueOfAnyType) {
  EXPECT_EQ(kept(CTLVCell::TLV_UINT, ""), 0);
  EXPECT_EQ(kept(CTLVCell::TLV_OCTET, ""), "");
  EXPECT_EQ(kept(CTLVCell::TLV_STRING, "")["octets"], "");
  EXPECT_EQ(kept(CTLVCell::TLV_JSON, "")["octets"], "");
}

TEST(CellJson, ShowsWhatAnArrayAndAJsonTextStandFor) {
  EXPECT_EQ(kept(CTLVCell::TLV_ARRAY, "[1,\"a\",null]\0"s), json("[1,'a',null]"));
  EXPECT_EQ(kept(CTLVCell::TLV_ARRAY, "[]\0"s), json("[]"));
  EXPECT_EQ(kept(CTLVCell::TLV_JSON, "{\"a\":-1.5}\0"s), json("{'a':-1.5}"));
  EXPECT_EQ(kept(CTLVCell::TLV_JSON, "null\0"s), Json::Value());
  EXPECT_EQ(kept(CTLVCell::TLV_JSON, "\"a\"\0"s), "a");
}

TEST(CellJson, ShowsTheBytesOfWhatIsNoJsonOfItsType) {
  for (const std::string& text :
       {"{\"a\":1,\"a\":2}"s, "{\"a\":1}x"s, "[1]"s, "{"s, ""s, "/**/1"s, "\"\xff\""s, "nul"s, "-"s,
        "01"s, "\"a\nb\""s, "\"\\udc00\""s, "{\"octets\":\"00\"}"s}) {
    EXPECT_TRUE(kept(CTLVCell::TLV_JSON, text + "\0"s).isMember("octets")) << text;
  }
  EXPECT_TRUE(kept(CTLVCell::TLV_ARRAY, "{}\0"s).isMember("octets"));
  EXPECT_TRUE(kept(CTLVCell::TLV_ARRAY, "[]"s).isMember("octets"));
  EXPECT_TRUE(kept(CTLVCell::TLV_ARRAY, "[]\0\0"s).isMember("octets"));
}

TEST(CellJson, ShowsJsonThatTheLibraryWouldWriteOtherwise) {
  EXPECT_EQ(shown(CTLVCell::TLV_JSON, "{ \"b\" : 1,\n\"a\":[ ] }\0"s), json("{'a':[],'b':1}"));
  EXPECT_EQ(kept(CTLVCell::TLV_JSON, "\"\\u00fc\"\0"s), "\xc3\xbc");
  EXPECT_EQ(kept(CTLVCell::TLV_JSON, "\"\xc3\xbc\"\0"s), "\xc3\xbc");
  EXPECT_EQ(kept(CTLVCell::TLV_ARRAY, "[]   \0"s), json("[]"));
}

TEST(CellJson, KeepsNumbersOfAsManyDigitsAsTheyHave) {
  EXPECT_EQ(kept(CTLVCell::TLV_JSON, "0.1\0"s), 0.1);
  EXPECT_EQ(kept(CTLVCell::TLV_ARRAY, "[5e-324,1e+22,-0.0]\0"s), json("[5e-324,1e22,-0.0]"));
  EXPECT_EQ(kept(CTLVCell::TLV_ARRAY, "[\"\xc3\xa9\",1234567890123456.5]\0"s),
            json("['\xc3\xa9',1234567890123456.5]"));
}

TEST(CellJson, ShowsTheBytesOfANumberThatIsShorterThanItWouldBeWritten) {
  for (const std::string& text : {"1e3"s, "{\"a\":1e-7}"s, "18446744073709551616"s}) {
    EXPECT_TRUE(kept(CTLVCell::TLV_JSON, text + "\0"s).isMember("octets")) << text;
  }
  EXPECT_EQ(shown(CTLVCell::TLV_JSON, "1e3   \0"s), 1000.0);
}

TEST(CellJson, FillsJsonUpToTheLengthThatItIsTold) {
  EXPECT_EQ(madeOf("Json", "{'a':1}", 8), "{\"a\":1}\0"s);
  EXPECT_EQ(madeOf("Json", "{'a':1}", 10), "{\"a\":1}  \0"s);
  EXPECT_EQ(cellComplaint("{'tag':1,'type':'Json','value':{'a':1},'length':7}"),
            "cells[3].length: 7, but the value has 8 bytes");
}

TEST(CellJson, ShowsJsonAsDeepAsTheLibraryReadsIt) {
  const std::string deep = std::string(990, '[') + std::string(990, ']');
  EXPECT_TRUE(kept(CTLVCell::TLV_ARRAY, deep + "\0"s).isArray());
  const std::string deeper = std::string(1010, '[') + std::string(1010, ']');
  EXPECT_TRUE(kept(CTLVCell::TLV_ARRAY, deeper + "\0"s).isMember("octets"));
}

TEST(CellJson, MakesNumbersAsShortAsTheyCanBe) {
  EXPECT_EQ(made("Uint", "0"), "\0"s);
  EXPECT_EQ(made("Uint", "255"), "\xff");
  EXPECT_EQ(made("Uint", "256"), "\0\x01"s);
  EXPECT_EQ(made("Time", "65536").size(), 4U);
  EXPECT_EQ(made("Enum", "4294967296").size(), 8U);
  EXPECT_EQ(made("Uint", "18446744073709551615"), std::string(8, '\xff'));
  EXPECT_EQ(made("Int", "-128"), "\x80");
  EXPECT_EQ(made("Int", "128").size(), 2U);
  EXPECT_EQ(made("Int", "-2147483649").size(), 8U);
}

TEST(CellJson, MakesNumbersAsLongAsItIsTold) {
  EXPECT_EQ(madeOf("Uint", "1", 3), "\x01\0\0"s);
  EXPECT_EQ(madeOf("Uint", "1", 10), "\x01\0\0\0\0\0\0\0\0\0"s);
  EXPECT_EQ(madeOf("Int", "-1", 2), "\xff\xff");
  EXPECT_EQ(madeOf("Int", "16777215", 3), "\xff\xff\xff");
  EXPECT_EQ(madeOf("Bool", "0", 0), "");
}

TEST(CellJson, TakesTrueAndFalseForABool) {
  EXPECT_EQ(made("Bool", "true"), "\x01");
  EXPECT_EQ(made("Bool", "false"), "\0"s);
  EXPECT_EQ(madeOf("Bool", "true", 2), "\x01\0"s);
}

TEST(CellJson, RefusesANumberThatWouldNotBeReadBack) {
  EXPECT_EQ(cellComplaint("{'tag':1,'type':'Uint','value':256,'length':1}"),
            "cells[3].value: 256 is not what is read from 1 bytes");
  EXPECT_EQ(cellComplaint("{'tag':1,'type':'Uint','value':255,'length':1}"), "");
  EXPECT_THAT(cellComplaint("{'tag':1,'type':'Int','value':-129,'length':1}"), HasSubstr("-129"));
  EXPECT_EQ(cellComplaint("{'tag':1,'type':'Int','value':-128,'length':1}"), "");
  EXPECT_THAT(cellComplaint("{'tag':1,'type':'Int','value':-1,'length':3}"), HasSubstr("-1"));
  EXPECT_THAT(cellComplaint("{'tag':1,'type':'Bool','value':1,'length':0}"), HasSubstr("0 bytes"));
}

TEST(CellJson, TakesTheTypeAsNamedAlsoForAnEmptyValue) {
  const CTLVCell c = cellFromJson(json("{'tag':4095,'type':'Octet','length':0,'value':''}"), "");
  EXPECT_EQ(c.tag(), 4095);
  EXPECT_EQ(c.type(), CTLVCell::TLV_OCTET);
}

TEST(CellJson, MakesAnyValueFromItsOctets) {
  EXPECT_EQ(made("String", "{'octets':'61FF'}"), "a\xff");
  EXPECT_EQ(made("Uint", "{'octets':'0100'}"), "\x01\0"s);
  EXPECT_EQ(made("Json", "{'octets':'00'}"), "\0"s);
  EXPECT_EQ(made("Json", "{'octets':'00','b':1}"), "{\"b\":1,\"octets\":\"00\"}\0"s);
}

TEST(CellJson, SaysWhereItRefusesWhat) {
  const std::string ok = "{'tag':1,'type':'Uint','value':1";
  EXPECT_EQ(cellComplaint(ok + "}"), "");
  EXPECT_EQ(cellComplaint(ok + ",'extra':1}"), "cells[3].extra: unknown key");
  EXPECT_EQ(cellComplaint("[]"), "cells[3]: not an object");
  EXPECT_EQ(cellComplaint("{'type':'Uint','value':1}"), "cells[3].tag: missing");
  EXPECT_EQ(cellComplaint("{'tag':1,'value':1}"), "cells[3].type: missing");
  EXPECT_EQ(cellComplaint("{'tag':1,'type':'Uint'}"), "cells[3].value: missing");
  EXPECT_EQ(cellComplaint("{'tag':4095,'type':'Uint','value':1}"), "");
  EXPECT_EQ(cellComplaint("{'tag':4096,'type':'Uint','value':1}"),
            "cells[3].tag: 4096 is not within 0 to 4095");
  EXPECT_EQ(cellComplaint("{'tag':-1,'type':'Uint','value':1}"),
            "cells[3].tag: -1 is not within 0 to 4095");
  EXPECT_EQ(cellComplaint("{'tag':1,'type':'uint','value':1}"),
            "cells[3].type: \"uint\" is no type");
  EXPECT_EQ(cellComplaint("{'tag':1,'type':3,'value':1}"), "cells[3].type: not a text");
}

TEST(CellJson, RefusesValuesOfAnotherKindThanTheType) {
  const auto refused = [](const std::string& type, const std::string& value) {
    return cellComplaint("{'tag':1,'type':'" + type + "','value':" + value + "}");
  };
  const std::string noInteger = "cells[3].value: not an integer of up to 64 bits";
  EXPECT_EQ(refused("Uint", "'1'"), noInteger);
  EXPECT_EQ(refused("Uint", "1.0"), noInteger);
  EXPECT_EQ(refused("Uint", "18446744073709551616"), noInteger);
  EXPECT_EQ(refused("Bool", "'true'"), noInteger);
  EXPECT_EQ(refused("Uint", "true"), noInteger);
  EXPECT_EQ(refused("Int", "null"), noInteger);
  EXPECT_THAT(refused("Uint", "-1"), HasSubstr("-1 is not within 0 to 18446744073709551615"));
  EXPECT_THAT(refused("Int", "9223372036854775808"), HasSubstr("is not within"));
  EXPECT_EQ(refused("String", "1"), "cells[3].value: not a text");
  EXPECT_THAT(refused("String", "'\xff'"), HasSubstr("UTF-8"));
  EXPECT_THAT(refused("String", "'\\u0000'"), HasSubstr("cells[3].value: holds a NUL"));
  EXPECT_EQ(refused("Octet", "'0'"), "cells[3].value: not pairs of hexadecimal digits");
  EXPECT_EQ(refused("Octet", "'0g'"), "cells[3].value: not pairs of hexadecimal digits");
  EXPECT_EQ(refused("Array", "1"), "cells[3].value: not an array");
  EXPECT_THAT(refused("Json", "[]"), StartsWith("cells[3].value: an array"));
  EXPECT_EQ(refused("String", "{'octets':'x'}"),
            "cells[3].value.octets: not pairs of hexadecimal digits");
}

TEST(CellJson, RefusesALengthThatIsNotTheValues) {
  EXPECT_EQ(cellComplaint("{'tag':1,'type':'String','value':'ab','length':3}"), "");
  EXPECT_EQ(cellComplaint("{'tag':1,'type':'String','value':'ab','length':2}"),
            "cells[3].length: 2, but the value has 3 bytes");
  EXPECT_EQ(cellComplaint("{'tag':1,'type':'Uint','value':{'octets':'00'},'length':2}"),
            "cells[3].length: 2, but the value has 1 bytes");
  EXPECT_THAT(cellComplaint("{'tag':1,'type':'String','value':'ab','length':65536}"),
              HasSubstr("cells[3].length: 65536 is not within 0 to 65535"));
}

TEST(CellJson, HoldsValuesOfUpTo65535Bytes) {
  EXPECT_EQ(made("String", "'" + std::string(65534, 'a') + "'").size(), 65535U);
  EXPECT_THAT(cellComplaint("{'tag':1,'type':'String','value':'" + std::string(65535, 'a') + "'}"),
              StartsWith("cells[3].value: 65536 bytes are more than"));
  EXPECT_THAT(cellComplaint("{'tag':1,'type':'Json','value':'" + std::string(65535, 'a') + "'}"),
              StartsWith("cells[3].value: "));
}

TEST(RecordJson, ShowsCommandLengthAndCellsInTheirOrder) {
  CTLVRecordV3 record(0xFFFFFFFFFFFFFFFF);
  record.addUnsigned(2, 1).addString(1, "a").addUnsigned(2, 3);
  const Json::Value shownRecord = toJson(record);
  EXPECT_EQ(shownRecord["cmd"], Json::Value::maxUInt64);
  EXPECT_EQ(shownRecord["length"], 16);
  ASSERT_EQ(shownRecord["cells"].size(), 3U);
  EXPECT_EQ(shownRecord["cells"][0]["value"], 1);
  EXPECT_EQ(shownRecord["cells"][1]["value"], "a");
  EXPECT_EQ(shownRecord["cells"][2]["value"], 3);
}

TEST(RecordJson, SaysWhereItRefusesWhat) {
  const std::string one = "{'tag':1,'type':'Uint','value':1}";
  EXPECT_EQ(recordComplaint("{'cmd':1,'cells':[" + one + "]}"), "");
  EXPECT_EQ(recordComplaint("{'cmd':1,'cells':[" + one + "],'length':5}"), "");
  EXPECT_EQ(recordComplaint("{'cmd':1,'cells':[" + one + "],'length':6}"),
            "records[1].length: 6, but the cells have 5 bytes");
  EXPECT_EQ(recordComplaint("{'cmd':1,'cells':[" + one + ",{}]}"),
            "records[1].cells[1].tag: missing");
  EXPECT_EQ(recordComplaint("{'cmd':1}"), "records[1].cells: missing");
  EXPECT_EQ(recordComplaint("{'cmd':1,'cells':{}}"), "records[1].cells: not an array");
  EXPECT_EQ(recordComplaint("{'cells':[]}"), "records[1].cmd: missing");
  EXPECT_THAT(recordComplaint("{'cmd':-1,'cells':[]}"), StartsWith("records[1].cmd: -1"));
  EXPECT_EQ(recordComplaint("{'cmd':1,'cells':[],'cell':1}"), "records[1].cell: unknown key");
}

TEST(RecordJson, RefusesTheCellThatMakesTheRecordTooLong) {
  const auto record = [](std::size_t text) {
    return "{'cmd':1,'cells':[{'tag':1,'type':'Uint','value':1},{'tag':2,'type':'String','value':"
           "'" +
           std::string(text, 'a') + "'}]}";
  };
  // 65535 bytes: two heads of 4, one byte, the NUL.
  EXPECT_EQ(recordComplaint(record(65525)), "");
  EXPECT_THAT(recordComplaint(record(65526)), StartsWith("records[1].cells[1]: "));
}

TEST(MessageJson, GivesTheBytesOfAV3MessageBack) {
  Bytes bytes;
  bytes.u32(0x55555555).u32(3).u32(4).u32(5).u16(6).u16(7).u16(8).u16(9).u32(10 + 9 + 10);
  bytes.record(0x1122334455667788, 9).cell(4095, 4, 5).fill(5, 0xFF).record(2, 0);
  const Json::Value meaning = meaningOf<CT7QPackageV3>(bytes);
  EXPECT_EQ(meaning,
            json("{'head':{'magic':1431655765,'version':3,'ret':4,'ssk':5,'nid':6,'reserved':7,"
                 "'bid':8,'ser':9,'len':29},'records':[{'cmd':1234605616436508552,'length':9,"
                 "'cells':[{'tag':4095,'type':'Int','length':5,'value':1099511627775}]},"
                 "{'cmd':2,'length':0,'cells':[]}]}"));
  EXPECT_EQ(bytesOfMeaning<CT7QPackageV3>(meaning), bytes.data());
}

TEST(MessageJson, GivesTheBytesOfAnInternalMessageBack) {
  Bytes bytes;
  bytes.u32(20080808).u8(1).u8(4).u8(2).u8(3).u8(5).u8(6).u8(7).u8(8).u32(0xFFFFFFFE).u32(9);
  bytes.u64(0xFFFFFFFFFFFFFFFF).u32(14).record(1, 4).cell(1, 0, 0);
  const Json::Value meaning = meaningOf<CQOV_MsgPackage>(bytes);
  // What has no value arrives without a type, under the tag of a cell that was never set.
  EXPECT_EQ(meaning,
            json("{'head':{'magic':20080808,'version':1,'type':4,'mst':2,'spid':3,'smid':5,"
                 "'rpid':6,'rmid':7,'flags':8,'cid':-2,'sn':9,'opc':18446744073709551615,'len':14},"
                 "'records':[{'cmd':1,'length':4,"
                 "'cells':[{'tag':4094,'type':'Invalid','length':0,'value':''}]}]}"));
  bytes.set(32 + 10, 0xE0).set(32 + 11, 0xFF);
  EXPECT_EQ(bytesOfMeaning<CQOV_MsgPackage>(meaning), bytes.data());
}

TEST(MessageJson, ShowsAnOmMessageWithTheMessageInsideAndTheLengthThatItSays) {
  Bytes bytes;
  bytes.head(12345).set(11, 1).headV3(10).record(5, 0);
  const Json::Value meaning = meaningOf<OmMessage>(bytes);
  EXPECT_EQ(meaning["head"]["flags"], 1);
  EXPECT_EQ(meaning["head"]["len"], 12345);
  EXPECT_EQ(meaning["records"], json("[]"));
  EXPECT_EQ(meaning["inner"]["head"]["ssk"], jsonNumber(0xFFFFFFFF));
  EXPECT_EQ(meaning["inner"]["records"], json("[{'cmd':5,'length':0,'cells':[]}]"));
  OmMessage message;
  fromJson(parseJson(jsonText(meaning)), "", message);
  EXPECT_EQ(toJson(message), meaning);
}

TEST(MessageJson, GivesTheBytesOfAnOmMessageBack) {
  Bytes bytes;
  bytes.head(38).set(11, 1).headV3(10).record(5, 0);
  OmMessage message;
  fromJson(meaningOf<OmMessage>(bytes), "", message);
  std::vector<unsigned char> buffer(bytes.size());
  EXPECT_EQ(message.encode(buffer.data(), bytes.size()), bytes.size());
  EXPECT_EQ(buffer, bytes.data());
}

TEST(MessageJson, RefusesAnOmMessageWithRecordsOfItsOwnOrNoneInside) {
  OmMessage message;
  const auto refused = [&](const std::string& text) {
    return complaint([&] { fromJson(json(text), "messages[0]", message); });
  };
  const std::string start = "{'head':{'type':1},'records':[";
  EXPECT_EQ(refused(start + "],'inner':{'records':[]}}"), "");
  EXPECT_EQ(message.head().flags_, 1);
  EXPECT_EQ(message.head().len_, 28U);
  EXPECT_EQ(refused(start + "]}"), "messages[0].inner: missing");
  EXPECT_EQ(refused(start + "],'inner':{'records':[{}]}}"),
            "messages[0].inner.records[0].cmd: missing");
  EXPECT_EQ(refused(start + "{'cmd':1,'cells':[]}],'inner':{'records':[]}}"),
            "messages[0].records: not empty: the inner message has the records");
}

TEST(MessageJson, FillsInTheDefaultsOfAHeadThatIsNotThere) {
  EXPECT_EQ(bytesOfMeaning<CT7QPackageV3>(json("{'records':[]}")), Bytes().headV3(0).data());
  const auto bytes =
      bytesOfMeaning<CQOV_MsgPackage>(json("{'head':{'type':1,'sn':7,'opc':1234605616436508552},"
                                           "'records':[]}"));
  EXPECT_EQ(bytes, Bytes().head(0).data());
}

TEST(MessageJson, SaysWhereItRefusesWhat) {
  EXPECT_EQ(v3Complaint("{}"), "messages[0].records: missing");
  EXPECT_EQ(v3Complaint("{'records':[],'inner':1}"), "messages[0].inner: unknown key");
  EXPECT_EQ(v3Complaint("{'records':[],'head':[]}"), "messages[0].head: not an object");
  EXPECT_EQ(v3Complaint("{'records':[],'head':{'sn':1}}"), "messages[0].head.sn: unknown key");
  EXPECT_EQ(v3Complaint("{'records':[],'head':{'nid':65535}}"), "");
  EXPECT_EQ(v3Complaint("{'records':[],'head':{'nid':65536}}"),
            "messages[0].head.nid: 65536 is not within 0 to 65535");
  EXPECT_EQ(v3Complaint("{'records':[],'head':{'magic':1}}"),
            "messages[0].head.magic: not 1431655765");
  EXPECT_EQ(v3Complaint("{'records':[],'head':{'version':2}}"), "messages[0].head.version: not 3");
  EXPECT_EQ(v3Complaint("{'records':[],'head':{'len':1}}"),
            "messages[0].head.len: 1, but the records have 0 bytes");
  EXPECT_EQ(v3Complaint("{'records':[{'cmd':1,'cells':[]},{'cmd':1,'cells':[{'tag':1,"
                        "'type':'Uint','value':true}]}]}"),
            "messages[0].records[1].cells[0].value: not an integer of up to 64 bits");
}

TEST(MessageJson, RefusesAnInternalHeadThatIsNoneOfAMessage) {
  const auto refused = [](const std::string& head) {
    return internalComplaint("{'records':[],'head':{" + head + "}}");
  };
  EXPECT_EQ(refused("'type':4"), "");
  EXPECT_EQ(refused("'type':0"), "messages[0].head.type: 0 is no message type; they are 1 to 4");
  EXPECT_EQ(refused("'type':5"), "messages[0].head.type: 5 is not within 0 to 4");
  EXPECT_EQ(refused("'sn':1"), "messages[0].head.type: missing");
  EXPECT_EQ(refused("'type':1,'cid':-2147483648"), "");
  EXPECT_THAT(refused("'type':1,'cid':-2147483649"), StartsWith("messages[0].head.cid: "));
  EXPECT_THAT(refused("'type':1,'cid':2147483648"), StartsWith("messages[0].head.cid: "));
  EXPECT_EQ(refused("'type':1,'magic':1431655765"), "messages[0].head.magic: not 20080808");
  EXPECT_EQ(refused("'type':1,'ret':0"), "messages[0].head.ret: unknown key");
}

TEST(StrictJson, RefusesWhatLaxReadersAccept) {
  for (const char* text :
       {"{'a':1,'a':2}", "[1,]", "{'a':1}x", "// no\n1", "[NaN]", "", "{'a'}", "['\\ud800']"}) {
    EXPECT_THAT(complaint([&] { json(text); }), StartsWith("not JSON: ")) << text;
  }
  EXPECT_THAT(complaint([] { json("{'a':1,\n'b':2,'b':3}"); }), HasSubstr("Line 2"));
  EXPECT_EQ(json("1"), 1);
}

TEST(StrictJson, RefusesWhatLaxReadersTakeForAnotherValue) {
  const auto refused = [](const std::string& text) { return complaint([&] { json(text); }); };
  for (const char* number : {"-", "01", "-01", "1.", "1.e1", "-.5", "1.5.5"}) {
    for (const char* before : {"", "[0,", "{'a':"}) {
      const std::string after = *before == '[' ? "]" : *before == '{' ? "}" : "";
      EXPECT_THAT(refused(before + std::string(number) + after), StartsWith("not JSON: "))
          << before << number;
    }
  }
  for (const char* text : {"'a\nb'", "'\x01'", "{'\t':1}", "'\\udc00'", "'\\ud83d\\u0041'",
                           "'\\udc00\\ud83d'", "'\xff'", "'\xed\xa0\x80'", "\xef\xbb\xbf\x31"}) {
    EXPECT_THAT(refused(text), StartsWith("not JSON: ")) << text;
  }
  EXPECT_EQ(refused("1\0"s), "not JSON: Line 1, Column 2: a NUL");
}

TEST(StrictJson, SaysWhereAndWhyATextIsNone) {
  const auto refused = [](const std::string& text) { return complaint([&] { json(text); }); };
  EXPECT_THAT(refused("[1,\n{'a':-}]"),
              AllOf(StartsWith("not JSON: Line 2, Column 7: "), HasSubstr("expected digit")));
  EXPECT_THAT(refused("'a\nb'"), StartsWith("not JSON: Line 1, Column 3: "));
  EXPECT_THAT(refused(""), StartsWith("not JSON: Line 1, Column 1: "));
  EXPECT_EQ(refused("{'a':[],\n 'b':2,'a':3}"),
            "not JSON: Line 2, Column 10: another member has this key");
  EXPECT_EQ(refused("[1e400]"), "not JSON: Line 1, Column 6: a number that is too large");
  // What was read so far is not shown: it may be long.
  EXPECT_THAT(refused("'" + std::string(1000, 'a')), SizeIs(Lt(200U)));
}

TEST(StrictJson, KeepsIntegersOfSixtyFourBitsExact) {
  EXPECT_EQ(json("18446744073709551615").asUInt64(), 18446744073709551615U);
  EXPECT_EQ(json("-9223372036854775808").asInt64(), INT64_MIN);
  EXPECT_TRUE(json("18446744073709551616").isDouble());
}

TEST(StrictJson, ReadsEveryFormOfNumbersAndStrings) {
  EXPECT_EQ(json("[0,-0,10,-1,1.0,0.5,1e3,1E+3,1e-3,-0.25e01]").size(), 10U);
  EXPECT_EQ(json("[true,false,null]").size(), 3U);
  EXPECT_EQ(json("'\\ud83c\\udf0d\\u00fc'"), "\xf0\x9f\x8c\x8d\xc3\xbc");
  EXPECT_EQ(json("'\\\\udc00 - 01 \\\"\\n'"), "\\udc00 - 01 \"\n");
  EXPECT_EQ(json("{'01':'\\\\'}")["01"], "\\");
}

TEST(StrictJson, RefusesNestingThatWouldExhaustTheStack) {
  const auto nested = [](std::size_t depth) {
    return complaint([&] { json(std::string(depth, '[') + std::string(depth, ']')); });
  };
  EXPECT_EQ(nested(1050), "");
  EXPECT_THAT(nested(100000), HasSubstr("nested deeper"));
}

}  // namespace
}  // namespace qov::common
