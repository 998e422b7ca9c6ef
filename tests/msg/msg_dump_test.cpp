#include <gtest/gtest.h>
#include <json/value.h>
#include <qovpub/qov_om_message_package.h>

#include <iomanip>
#include <ios>
#include <locale>
#include <sstream>
#include <string>

namespace {

template <class T>
std::string dumpOf(const T& object) {
  std::ostringstream out;
  object.dump(out);
  return out.str();
}

std::string dumpOf(CTLVCell::ETLVType type, const std::string& value) {
  std::ostringstream out;
  CTLVRecordV3().dump_i(CTLVCell(type, 1, value.data(), value.size()), out);
  return out.str();
}

TEST(Dump, WritesTheInternalHeaderInElevenLines) {
  QOVMsgHead head;
  head.type_ = 2;
  head.mst_ = 5;
  head.spid_ = 65;
  head.rmid_ = 0;
  head.sn_ = 4000000000;
  head.opc_ = 18000000000000000000ULL;
  head.len_ = 12;
  EXPECT_EQ(dumpOf(head),
            "  VER=1\n  TYP=2\n  MST=5\n  SPID=65\n  SMID=255\n  RPID=255\n  RMID=0\n"
            "  CID=-1\n  SN=4000000000\n  OPC=18000000000000000000\n  LEN=12\n");
}

TEST(Dump, WritesOfTheSessionKeyOnlyTheEndOfItsDigest) {
  TLVMsgHeadV3 head;
  head.ret_ = 16797698;
  head.ssk_ = 0;
  head.ser_ = 8;
  // SHA-256 of the text 0 is 5feceb66ffc86f38d952786c6d696c79c2dbc239dd4e91b46729d73a27fb57e9.
  EXPECT_EQ(dumpOf(head), "RET=16797698\nSSK=3a27fb57e9\nNID=65533\nBID=65535\nSER=8\nLEN=0\n");
}

TEST(Dump, WritesARecordWithoutCells) {
  EXPECT_EQ(dumpOf(CTLVRecordV3(12)), "  {/*record*/\n    cmd = 12, length = 0\n  }\n");
}

TEST(Dump, WritesOneLineForEachCell) {
  CTLVRecordV3 record(7);
  record.addUnsigned(1, 300).addSigned(2, -3).addString(4095, "abc");
  CTLVCell unknown;
  unknown.setCell(3 << 4 | 12, "z", 1);
  record.add(unknown);
  EXPECT_EQ(dumpOf(record),
            "  {/*record*/\n    cmd = 7, length = 24\n"
            "    {T,L,V=1,2,Uint: 300}\n"
            "    {T,L,V=2,1,Int: -3}\n"
            "    {T,L,V=4095,4,String: strlen:3}\n"
            "    {T,L,V=3,1,Invalid: null}\n"
            "  }\n");
}

TEST(Dump, NamesEveryType) {
  const char* names[] = {"Invalid", "Octet", "String", "Uint", "Int",
                         "Bool",    "Enum",  "Array",  "Json", "Time"};
  for (unsigned int type = 0; type < 16; ++type) {
    EXPECT_STREQ(CTLVCell::typeName(type), type < 10 ? names[type] : "Invalid");
  }
}

TEST(Dump, WritesOctetsInHexadecimalWithABaseExceptZero) {
  EXPECT_EQ(dumpOf(CTLVCell::TLV_OCTET, "\x01\xAB"), "{0x1 0xab } ");
  EXPECT_EQ(dumpOf(CTLVCell::TLV_OCTET, std::string("\0\xFF", 2)), "{0 0xff } ");
  EXPECT_EQ(dumpOf(CTLVCell::TLV_OCTET, ""), "{} ");
}

TEST(Dump, SetsTheStreamBackToDecimal) {
  std::ostringstream out;
  CTLVRecordV3().dump_i(CTLVCell(CTLVCell::TLV_OCTET, 1, "\x10", 1), out);
  out << 16;
  EXPECT_EQ(out.str(), "{0x10 } 16");
}

TEST(Dump, WritesDecimalIntoAStreamThatWasSetToHexadecimal) {
  std::ostringstream out;
  out << std::hex;
  CTLVRecordV3 record(16);
  record.addUnsigned(17, 18);
  record.dump(out);
  EXPECT_NE(out.str().find("cmd = 16"), std::string::npos);
  EXPECT_NE(out.str().find("T,L,V=17,1,Uint: 18"), std::string::npos);
}

/// What dump() adds to a stream that `set` has set up, and the stream's flags afterwards.
template <class T, class Set>
void isTheSameIn(const T& object, const Set& set) {
  std::ostringstream out;
  set(out);
  const std::ios_base::fmtflags flags = out.flags();
  object.dump(out);
  EXPECT_EQ(out.str(), dumpOf(object));
  EXPECT_EQ(out.flags(), (flags & ~std::ios_base::basefield) | std::ios_base::dec);
}

TEST(Dump, IsTheSameWhateverTheStreamWasSetTo) {
  const auto all = [](const auto& set) {
    CQOV_OM_MsgPackage om(new CT7QPackageV3);
    CTLVRecordV3& record = om.get()->addRecord(16);
    record.addSigned(2, 5).addUnsigned(3, 255).addOctets(4, "\xAB\0\1", 3);
    isTheSameIn(om, set);
    isTheSameIn(*om.get(), set);
    isTheSameIn(om.head(), set);
    isTheSameIn(om.get()->head(), set);
    isTheSameIn(record, set);
  };
  all([](std::ostream& out) { out << std::hex << std::showbase; });
  all([](std::ostream& out) { out << std::oct << std::uppercase << std::showpos; });
  all([](std::ostream& out) { out << std::setw(9) << std::setfill('*') << std::left; });
  all([](std::ostream& out) { out << std::boolalpha << std::internal; });
}

TEST(Dump, OfOneCellIsTheSameWhateverTheStreamWasSetTo) {
  std::ostringstream out;
  out << std::hex << std::showbase << std::showpos << std::setw(9);
  CTLVRecordV3().dump_i(CTLVCell(CTLVCell::TLV_INT, 1, "\x10", 1), out);
  EXPECT_EQ(out.str(), "16");
}

TEST(Dump, NeverWritesATextItself) {
  EXPECT_EQ(dumpOf(CTLVCell::TLV_STRING, std::string("abc\0", 4)), "strlen:3");
  EXPECT_EQ(dumpOf(CTLVCell::TLV_ARRAY, std::string("[1]\0", 4)), "strlen:3");
  EXPECT_EQ(dumpOf(CTLVCell::TLV_JSON, std::string("{}\0", 3)), "strlen:2");
}

TEST(Dump, MeasuresATextWithoutNulWithinItsValue) {
  EXPECT_EQ(dumpOf(CTLVCell::TLV_STRING, std::string(19, 'x')), "strlen:19");
  EXPECT_EQ(dumpOf(CTLVCell::TLV_STRING, std::string(40, 'x')), "strlen:40");
  EXPECT_EQ(dumpOf(CTLVCell::TLV_STRING, ""), "strlen:0");
}

TEST(Dump, WritesBoolEnumAndTimeUnsigned) {
  for (const auto type :
       {CTLVCell::TLV_UINT, CTLVCell::TLV_BOOL, CTLVCell::TLV_ENUM, CTLVCell::TLV_TIME}) {
    EXPECT_EQ(dumpOf(type, std::string(8, '\xFF')), "18446744073709551615");
  }
  EXPECT_EQ(dumpOf(CTLVCell::TLV_INT, std::string(8, '\xFF')), "-1");
  EXPECT_EQ(dumpOf(CTLVCell::TLV_INVALID, "x"), "null");
}

/// Numbers as 1.000.000,5.
class Grouping : public std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

std::locale groupingLocale() {
  return std::locale(std::locale::classic(), new Grouping);
}

/// Makes it the program's locale until the end of the test.
class GlobalLocale {
 public:
  GlobalLocale() : before_(std::locale::global(groupingLocale())) {}
  ~GlobalLocale() { std::locale::global(before_); }
  GlobalLocale(const GlobalLocale&) = delete;
  GlobalLocale& operator=(const GlobalLocale&) = delete;

 private:
  const std::locale before_;
};

CTLVRecordV3 recordOfLargeNumbers() {
  CTLVRecordV3 record(1000000);
  record.addUnsigned(4095, 2000000).addSigned(1001, -3000000).addTime(2, 4000000);
  record.addString(3, std::string(5000, 'x')).addOctets(4, "\xFF", 1);
  return record;
}

template <class T>
void isTheSameInEveryLocale(const T& object) {
  const std::string plain = dumpOf(object);
  {
    const GlobalLocale global;
    EXPECT_EQ(dumpOf(object), plain);
  }
  std::ostringstream own;
  own.imbue(groupingLocale());
  object.dump(own);
  EXPECT_EQ(own.str(), plain);
  own << 1000000;
  EXPECT_EQ(own.str(), plain + "1.000.000");
}

TEST(Dump, IsTheSameInEveryLocaleAndLeavesTheStreamItsOwn) {
  CQOV_MsgPackage internal;
  internal.head().sn_ = 1000000;
  internal.head().cid_ = -1000000;
  internal.head().opc_ = 18000000000000000000ULL;
  internal.addRecord(1) = recordOfLargeNumbers();
  CT7QPackageV3 v3;
  v3.head().ret_ = 16797698;
  v3.addRecord(1) = recordOfLargeNumbers();
  isTheSameInEveryLocale(internal.head());
  isTheSameInEveryLocale(v3.head());
  isTheSameInEveryLocale(recordOfLargeNumbers());
  isTheSameInEveryLocale(internal);
  isTheSameInEveryLocale(v3);
}

TEST(Dump, WritesAValueTheSameInEveryLocale) {
  const GlobalLocale global;
  CTLVCell cell;
  cell.setUnsigned(1, 1000000);
  std::ostringstream out;
  CTLVRecordV3().dump_i(cell, out);
  EXPECT_EQ(out.str(), "1000000");
}

TEST(Dump, LeavesJsonTextTheSameInEveryLocale) {
  Json::Value json;
  json["real"] = 1234567.25;
  json["whole"] = 1000000;
  CTLVCell plain;
  plain.set(1, json);
  const GlobalLocale global;
  CTLVCell cell;
  cell.set(1, json);
  EXPECT_EQ(cell, plain);
  EXPECT_EQ(cell.toString(), "{\"real\":1234567.25,\"whole\":1000000}");
  const CTLVCell array(CTLVCell::TLV_ARRAY, 1, "[-1000000]", 11);
  EXPECT_EQ(array.toString(), "-1000000");
}

TEST(Dump, WritesAPackageInBraces) {
  CT7QPackageV3 package;
  package.addRecord(1);
  EXPECT_EQ(dumpOf(package), "{\n" + dumpOf(package.head()) + dumpOf(package[0]) + "}\n");
  CQOV_MsgPackage internal;
  EXPECT_EQ(dumpOf(internal), "{\n" + dumpOf(internal.head()) + "}\n");
}

}  // namespace
