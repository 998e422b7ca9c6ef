#include "modules/common/message_payload.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <qovpub/qov_om_message_package.h>

#include <functional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "modules/common/message_json.h"
#include "tests/msg/bytes.h"

using namespace std::string_literals;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace qov::common {
namespace {

using tests::Bytes;

std::string textOf(Bytes& bytes) {
  return {reinterpret_cast<const char*>(bytes.begin()), bytes.size()};
}

/// ' in the place of the quotes.
std::string quoted(std::string text) {
  for (char& c : text) {
    c = c == '\'' ? '"' : c;
  }
  return text;
}

/// What the JSON is refused with, or nothing.
std::string refusedJson(const std::string& text) {
  try {
    messageOfJson(quoted(text));
  } catch (const BadJson& e) {
    return e.what();
  }
  return "";
}

/// The same of a message whose only record has this cell.
std::string refusedCell(const std::string& cell) {
  return refusedJson("{'head':{'type':1},'records':[{'cmd':1,'cells':[" + cell + "]}]}");
}

std::string refusedBytes(const std::string& bytes) {
  try {
    messageOfBytes(bytes);
  } catch (const BadBytes& e) {
    return e.what();
  }
  return "";
}

/// Runs `work` on a stack as small as that of a module's threads.
void onASmallStack(std::function<void()> work) {
  pthread_attr_t small;
  ASSERT_EQ(::pthread_attr_init(&small), 0);
  ASSERT_EQ(::pthread_attr_setstacksize(&small, std::size_t{1} << 20U), 0);
  pthread_t thread{};
  ASSERT_EQ(::pthread_create(
                &thread, &small,
                [](void* toDo) -> void* {
                  (*static_cast<std::function<void()>*>(toDo))();
                  return nullptr;
                },
                &work),
            0);
  ::pthread_join(thread, nullptr);
  ::pthread_attr_destroy(&small);
}

/// A message with a cell of every kind, and with values that are at the border of theirs.
CQOV_MsgPackage everyKind() {
  CQOV_MsgPackage message;
  QOVMsgHead& head = message.head();
  head.type_ = QOVMsgHead::kEvent;
  head.mst_ = 255;
  head.spid_ = 1;
  head.smid_ = 2;
  head.rpid_ = 3;
  head.rmid_ = 4;
  head.flags_ = 0xFE;
  head.cid_ = -7;
  head.sn_ = 0xFFFFFFFF;
  head.opc_ = 0xFFFFFFFFFFFFFFFF;
  Json::Value object;
  object["a"] = Json::Value(Json::arrayValue);
  object["b"] = -1.5;
  Json::Value array(Json::arrayValue);
  array.append("Z\xc3\xbcrich \xf0\x9f\x8c\x8d");
  array.append(Json::Value());
  array.append(true);
  CTLVRecordV3& values = message.addRecord(0xFFFFFFFFFFFFFFFF);
  values.add(CTLVCell(CTLVCell::TLV_OCTET, 1, "\0\xff", 2));
  values.addString(2, "a \"text\"\n\x01").addString(2, "");
  values.addUnsigned(3, 0).addUnsigned(3, 0xFFFFFFFFFFFFFFFF);
  values.addSigned(4, INT64_MIN).addSigned(4, -1).addSigned(4, 128);
  values.addBool(5, true).addEnum(6, 0x10000).addTime(7, 1700000000);
  values.addJson(8, array).addJson(9, object);
  message.addRecord(2);
  // Text without its NUL, a number of an odd width, JSON that is none.
  CTLVRecordV3& oddities = message.addRecord(3);
  oddities.add(CTLVCell(CTLVCell::TLV_STRING, 1, "ab", 2));
  oddities.add(CTLVCell(CTLVCell::TLV_STRING, 1, "\xff\0", 2));
  oddities.add(CTLVCell(CTLVCell::TLV_UINT, 2, "\1\2\3", 3));
  oddities.add(CTLVCell(CTLVCell::TLV_INT, 2, "\xff\xff\xff\xff\xff", 5));
  oddities.add(CTLVCell(CTLVCell::TLV_JSON, 3, "{", 2));
  oddities.add(CTLVCell(CTLVCell::TLV_ARRAY, 4, "{}", 3));
  oddities.add(CTLVCell(CTLVCell::TLV_INVALID, 5, "x", 1));
  return message;
}

TEST(MessagePayload, ComesBackFromItsJsonByteForByte) {
  CQOV_MsgPackage message = everyKind();
  const auto read = messageOfJson(jsonOfMessage(message));
  EXPECT_EQ(bytesOfMessage(*read), bytesOfMessage(message));
}

TEST(MessagePayload, ComesBackFromItsBytesByteForByte) {
  CQOV_MsgPackage message = everyKind();
  const std::string bytes = bytesOfMessage(message);
  EXPECT_EQ(bytesOfMessage(*messageOfBytes(bytes)), bytes);
}

TEST(MessagePayload, IsOneLineOfTheJsonOfTheMessage) {
  const CQOV_MsgPackage message = everyKind();
  const std::string line = jsonOfMessage(message);
  EXPECT_THAT(line, Not(Contains('\n')));
  EXPECT_EQ(parseJson(line), toJson(message));
}

TEST(MessagePayload, IsTheBytesThatTheWireFormatSays) {
  CQOV_MsgPackage message;
  message.head().type_ = QOVMsgHead::kRequest;
  message.head().sn_ = 7;
  message.head().opc_ = 0x1122334455667788;
  message.addRecord(5).addUnsigned(1, 9);
  Bytes bytes;
  bytes.head(15).record(5, 5).cell(1, 3, 1).u8(9);
  EXPECT_EQ(bytesOfMessage(message), textOf(bytes));
}

TEST(MessagePayload, CarriesTheMessageInsideAnOmMessageInBothForms) {
  Bytes bytes;
  bytes.head(38).set(11, 1).headV3(10).record(5, 0);
  const auto read = messageOfBytes(textOf(bytes));
  ASSERT_NE(dynamic_cast<CQOV_OM_MsgPackage*>(read.get()), nullptr);
  EXPECT_EQ(bytesOfMessage(*read), textOf(bytes));
  const auto again = messageOfJson(jsonOfMessage(*read));
  ASSERT_NE(dynamic_cast<CQOV_OM_MsgPackage*>(again.get()), nullptr);
  EXPECT_EQ(bytesOfMessage(*again), textOf(bytes));
}

TEST(MessagePayload, HasNoBytesIfAnOmMessageHasNoneInside) {
  CQOV_OM_MsgPackage message(nullptr);
  message.head().type_ = QOVMsgHead::kNotice;
  EXPECT_EQ(bytesOfMessage(message), "");
}

TEST(MessagePayload, RefusesFlagsThatContradictWhatIsInside) {
  EXPECT_EQ(refusedJson("{'head':{'type':1,'flags':1},'records':[]}"),
            "head.flags: with bit 0, but there is no message inside");
  EXPECT_EQ(refusedJson("{'head':{'type':1,'flags':0},'records':[],'inner':{'records':[]}}"),
            "head.flags: without bit 0, but there is a message inside");
  EXPECT_EQ(refusedJson("{'head':{'type':1},'records':[],'inner':{'records':[]}}"), "");
}

TEST(MessagePayload, RefusesBytesBehindTheMessage) {
  Bytes bytes;
  bytes.head(10).record(5, 0);
  EXPECT_EQ(refusedBytes(textOf(bytes)), "");
  EXPECT_EQ(refusedBytes(textOf(bytes) + "x"), "bad data at byte 42: 1 bytes behind the message");
}

TEST(MessagePayload, SaysAtWhichByteItRefusesWhat) {
  EXPECT_EQ(refusedBytes(""), "bad data at byte 0: head-short: 0 bytes are left, a header has 32");
  EXPECT_THAT(refusedBytes("hello"), StartsWith("bad data at byte 0: head-short: 5 bytes"));
  EXPECT_THAT(refusedBytes(std::string(40, 'x')), HasSubstr("byte 0: magic: 0x78787878 is not"));
  Bytes long10;
  long10.head(10).record(5, 1);
  EXPECT_THAT(refusedBytes(textOf(long10)), HasSubstr("record-length: "));
  Bytes noType;
  noType.head(0, 5);
  EXPECT_THAT(refusedBytes(textOf(noType)), HasSubstr("byte 5: type: 5 is none of 1 to 4"));
  Bytes om;
  om.head(28).set(11, 1);
  EXPECT_THAT(refusedBytes(textOf(om)), HasSubstr("byte 32: head-short: "));
}

struct RefusedDocument {
  const char* what;
  std::string text;
  std::string why;
};

void PrintTo(const RefusedDocument& document, std::ostream* out) {
  *out << document.what;
}

class MessageOfJson : public ::testing::TestWithParam<RefusedDocument> {};

TEST_P(MessageOfJson, RefusesWithTheKeyAndTheCause) {
  EXPECT_THAT(refusedJson(GetParam().text), StartsWith(GetParam().why)) << GetParam().what;
}

std::string cellDocument(const std::string& cell) {
  return "{'head':{'type':1},'records':[{'cmd':1,'cells':[" + cell + "]}]}";
}

std::string valueOf(const std::string& type, const std::string& value) {
  return cellDocument("{'tag':1,'type':'" + type + "','value':" + value + "}");
}

const std::string kValue = "records[0].cells[0].value: ";

INSTANTIATE_TEST_SUITE_P(
    Documents, MessageOfJson,
    ::testing::Values(
        RefusedDocument{"nothing", "", "not JSON: Line 1, Column 1: "},
        RefusedDocument{"no JSON", "{'head':", "not JSON: Line 1, "},
        RefusedDocument{"bytes", "\x7fU\x01", "not JSON: Line 1, Column 1: "},
        RefusedDocument{"a comment", "/**/{}", "not JSON: "},
        RefusedDocument{"something behind it", "{'records':[]}{}", "not JSON: "},
        RefusedDocument{"a key twice", "{'records':[],'records':[]}",
                        "not JSON: Line 1, Column 23: another member has this key"},
        RefusedDocument{"text that is not UTF-8", "{'\xff':1}", "not JSON: Line 1, Column 3: "},
        RefusedDocument{"half a character", valueOf("String", "'\xc3'"), "not JSON: "},
        RefusedDocument{"half a pair", valueOf("String", "'\\ud800'"), "not JSON: "},
        RefusedDocument{"a NUL", "{}\0"s, "not JSON: Line 1, Column 3: a NUL"},
        RefusedDocument{"no object", "[]", "not an object"},
        RefusedDocument{"an unknown key", "{'records':[],'colour':1}", "colour: unknown key"},
        RefusedDocument{"a printed document", "{'kind':'internal','messages':[]}",
                        "kind: unknown key"},
        RefusedDocument{"no head", "{'records':[]}", "head.type: missing"},
        RefusedDocument{"no records", "{'head':{'type':1}}", "records: missing"},
        RefusedDocument{"a head of another type", "{'head':1,'records':[]}", "head: not an object"},
        RefusedDocument{"a type out of range", "{'head':{'type':5},'records':[]}",
                        "head.type: 5 is not within 0 to 4"},
        RefusedDocument{"an operation code out of range",
                        "{'head':{'type':1,'opc':18446744073709551616},'records':[]}",
                        "head.opc: not an integer of up to 64 bits"},
        RefusedDocument{"an operation code as a text", "{'head':{'type':1,'opc':'1'},'records':[]}",
                        "head.opc: not an integer of up to 64 bits"},
        RefusedDocument{"records of another type", "{'head':{'type':1},'records':{}}",
                        "records: not an array"},
        RefusedDocument{"a record of another type", "{'head':{'type':1},'records':[1]}",
                        "records[0]: not an object"},
        RefusedDocument{"a cell of another type", cellDocument("[]"),
                        "records[0].cells[0]: not an object"},
        RefusedDocument{"a tag out of range", cellDocument("{'tag':4096,'type':'Uint','value':1}"),
                        "records[0].cells[0].tag: 4096 is not within 0 to 4095"},
        RefusedDocument{"an unknown type", valueOf("Float", "1"),
                        "records[0].cells[0].type: \"Float\" is no type"},
        RefusedDocument{"a text for a number", valueOf("Uint", "'1'"), kValue + "not an integer"},
        RefusedDocument{"a fraction", valueOf("Int", "1.5"), kValue + "not an integer"},
        RefusedDocument{"a negative number", valueOf("Time", "-1"), kValue + "-1 is not within 0"},
        RefusedDocument{"a number for a text", valueOf("String", "1"), kValue + "not a text"},
        RefusedDocument{"odd digits", valueOf("Octet", "'abc'"), kValue + "not pairs"},
        RefusedDocument{"an object for an array", valueOf("Array", "{}"), kValue + "not an array"},
        RefusedDocument{"a wrong length",
                        cellDocument("{'tag':1,'type':'String','value':'a','length':3}"),
                        "records[0].cells[0].length: 3, but the value has 2 bytes"},
        RefusedDocument{"a text that is too long",
                        valueOf("String", "'" + std::string(65535, 'a') + "'"),
                        kValue + "65536 bytes are more than a cell holds"},
        RefusedDocument{"a record that is too long",
                        cellDocument("{'tag':1,'type':'Uint','value':1},{'tag':1,'type':'String',"
                                     "'value':'" +
                                     std::string(65530, 'a') + "'}"),
                        "records[0].cells[1]: "},
        RefusedDocument{"what is nested too deep", std::string(100000, '['),
                        "not JSON: nested deeper than 1100 levels"},
        RefusedDocument{"a value that is nested too deep",
                        valueOf("Array", std::string(1200, '[') + std::string(1200, ']')),
                        "not JSON: nested deeper than 1100 levels"}));

TEST(MessagePayload, ReadsAndWritesTheDeepestValueOnAModulesStack) {
  onASmallStack([] {
    const std::string deep = std::string(1000, '[') + std::string(1000, ']');
    const auto message = messageOfJson(quoted(valueOf("Array", deep)));
    EXPECT_THAT(jsonOfMessage(*message), HasSubstr(deep));
  });
}

TEST(MessagePayload, RefusesWithAShortTextHoweverLongTheDocument) {
  const std::string text(1 << 20, 'a');
  for (const std::string& refused :
       {refusedJson("{'" + text + "':1}"), refusedCell("{'tag':1,'type':'" + text + "','value':1}"),
        refusedJson("'" + text + "'"), refusedJson("'" + text)}) {
    EXPECT_THAT(refused, AllOf(Not(""), ::testing::SizeIs(::testing::Lt(300U))));
  }
}

}  // namespace
}  // namespace qov::common
