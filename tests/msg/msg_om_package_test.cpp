#include <gtest/gtest.h>
#include <qovpub/qov_om_message_package.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tests/diag/log_capture.h"
#include "tests/msg/bytes.h"
#include "tests/msg/log_lines.h"

namespace {

using qov::tests::Bytes;
using qov::tests::FencedMemory;
using qov::tests::kBadHead;
using qov::tests::kFunctionV3;
using qov::tests::kNoHead;
using qov::tests::kPlace;
using qov::tests::Lines;
using qov::tests::linesOf;

constexpr unsigned int kFailed = CQOV_OM_MsgPackage::kFailed;
constexpr unsigned int kInnerBody = 10 + 5 + 10;

/// A V3 package with the records of writtenOut().
std::unique_ptr<CT7QPackageV3> makeInner() {
  auto inner = std::make_unique<CT7QPackageV3>();
  inner->addRecord(0x0102030405060708).addUnsigned(6, 200);
  inner->addRecord(2);
  return inner;
}

/// An OM message: an internal header with bit 0 of the flags set, and the inner message.
Bytes writtenOut(std::uint64_t len = 28 + kInnerBody, unsigned int type = 1) {
  Bytes message;
  message.head(len, type).set(11, 1).headV3(kInnerBody);
  return message.record(0x0102030405060708, 5).cell(6, 3, 1).u8(200).record(2, 0);
}

/// The header of what writtenOut() says, in a package without an inner one.
void fillHead(CQOV_MsgPackage& package) {
  package.head().type_ = 1;
  package.head().sn_ = 7;
  package.head().opc_ = 0x1122334455667788;
}

template <class Package>
std::string dumpOf(const Package& package) {
  std::ostringstream out;
  package.dump(out);
  return out.str();
}

bool sameHead(const QOVMsgHead& one, const QOVMsgHead& other) {
  return std::memcmp(&one, &other, sizeof one) == 0;
}

/// A V3 package that tells when it is deleted.
class Telling : public CT7QPackageV3 {
 public:
  explicit Telling(int& deleted) : deleted_(deleted) {}
  ~Telling() override { ++deleted_; }

 private:
  int& deleted_;
};

TEST(OmPackage, HasADefaultHeaderWithBit0OfTheFlagsSet) {
  const QOVMsgHead before;
  const CQOV_OM_MsgPackage package(nullptr);
  QOVMsgHead expected(before);
  expected.sn_ = before.sn_ + 1;
  expected.flags_ = 1;
  EXPECT_TRUE(sameHead(package.head(), expected));
  EXPECT_EQ(package.get(), nullptr);
  EXPECT_EQ(package.count(), 0U);
}

TEST(OmPackage, DeletesItsInnerPackage) {
  int deleted = 0;
  {
    const std::unique_ptr<CQOV_MsgPackage> package(new CQOV_OM_MsgPackage(new Telling(deleted)));
    EXPECT_EQ(deleted, 0);
  }
  EXPECT_EQ(deleted, 1);
}

TEST(OmPackage, DeletesTheInnerPackageThatAnotherReplaces) {
  int first = 0;
  int second = 0;
  CQOV_OM_MsgPackage package(new Telling(first));
  auto* const other = new Telling(second);
  package.set(other);
  EXPECT_EQ(package.get(), other);
  EXPECT_EQ(first, 1);
  package.set(nullptr);
  EXPECT_EQ(package.get(), nullptr);
  EXPECT_EQ(second, 1);
}

TEST(OmPackage, KeepsTheInnerPackageThatItIsGivenAgain) {
  int deleted = 0;
  {
    CQOV_OM_MsgPackage package(new Telling(deleted));
    package.set(package.get());
    ASSERT_EQ(deleted, 0);
    EXPECT_EQ(package.get()->count(), 0U);
  }
  EXPECT_EQ(deleted, 1);
}

TEST(OmPackage, ForgetsTheInnerPackageThatItReleases) {
  int deleted = 0;
  std::unique_ptr<CT7QPackageV3> taken;
  {
    CQOV_OM_MsgPackage package(new Telling(deleted));
    taken.reset(package.release());
    EXPECT_EQ(package.get(), nullptr);
    EXPECT_EQ(package.release(), nullptr);
  }
  EXPECT_NE(taken, nullptr);
  EXPECT_EQ(deleted, 0);
}

TEST(OmPackage, ClearsItsOwnRecordsOnly) {
  CQOV_OM_MsgPackage package(makeInner().release());
  package.addRecord(5);
  package.clear();
  EXPECT_EQ(package.count(), 0U);
  ASSERT_NE(package.get(), nullptr);
  EXPECT_EQ(package.get()->count(), 2U);
}

TEST(OmPackage, CopiesDeeply) {
  CQOV_OM_MsgPackage package(makeInner().release());
  package.addRecord(5);
  const CQOV_OM_MsgPackage copy(package);
  (*package.get())[0][6].setUnsigned(6, 1);
  EXPECT_TRUE(sameHead(copy.head(), package.head()));
  EXPECT_EQ(copy.count(), 1U);
  ASSERT_NE(copy.get(), nullptr);
  EXPECT_EQ((*copy.get())[0].getUnsigned(6), 200U);
  EXPECT_EQ(CQOV_OM_MsgPackage(CQOV_OM_MsgPackage(nullptr)).get(), nullptr);
}

TEST(OmPackage, IsAssignedDeeply) {
  int deleted = 0;
  CQOV_OM_MsgPackage assigned(new Telling(deleted));
  {
    CQOV_OM_MsgPackage package(makeInner().release());
    package.head().opc_ = 42;
    assigned = package;
  }
  EXPECT_EQ(deleted, 1);
  const CQOV_OM_MsgPackage& same = assigned;
  const CT7QPackageV3* const inner = assigned.get();
  assigned = same;
  EXPECT_EQ(assigned.get(), inner);
  EXPECT_EQ(assigned.head().opc_, 42U);
  ASSERT_NE(assigned.get(), nullptr);
  EXPECT_EQ((*assigned.get())[0].getUnsigned(6), 200U);
  assigned = CQOV_OM_MsgPackage(nullptr);
  EXPECT_EQ(assigned.get(), nullptr);
}

TEST(OmPackage, DecodesWhatIsWrittenOut) {
  FencedMemory memory(writtenOut().data());
  CQOV_OM_MsgPackage package(nullptr);
  package.addRecord(5);
  CQOV_MsgPackage& base = package;
  EXPECT_EQ(base.decode(memory.begin(), writtenOut().size()), kInnerBody);
  EXPECT_EQ(std::memcmp(&package.head(), writtenOut().begin(), 32), 0);
  EXPECT_EQ(package.count(), 1U);
  ASSERT_NE(package.get(), nullptr);
  EXPECT_EQ(std::memcmp(&package.get()->head(), writtenOut().begin() + 32, 28), 0);
  ASSERT_EQ(package.get()->count(), 2U);
  EXPECT_EQ((*package.get())[0].cmd(), 0x0102030405060708U);
  EXPECT_EQ((*package.get())[0].getUnsigned(6), 200U);
  EXPECT_EQ((*package.get())[1].cmd(), 2U);
}

TEST(OmPackage, ReusesTheInnerPackageAndClearsItFirst) {
  Bytes message = writtenOut();
  CT7QPackageV3* const inner = makeInner().release();
  CQOV_OM_MsgPackage package(inner);
  package.addRecord(5);
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(package.decode(message.begin(), message.size()), kInnerBody);
    EXPECT_EQ(package.get(), inner);
    EXPECT_EQ(inner->count(), 2U);
    EXPECT_EQ(package.count(), 1U);
  }
}

TEST(OmPackage, DoesNotLookAtTheLengthInItsOwnHeader) {
  for (const std::uint64_t len : {0ULL, 1ULL, 1000000ULL, 0xFFFFFFFFULL}) {
    Bytes message = writtenOut(len);
    CQOV_OM_MsgPackage package(nullptr);
    EXPECT_EQ(package.decode(message.begin(), message.size()), kInnerBody);
    EXPECT_EQ(package.head().len_, len);
  }
}

/// Decodes at the end of accessible memory into a package that holds an inner one.
class Decoding {
 public:
  explicit Decoding(const Bytes& message) : package(makeInner().release()) {
    FencedMemory memory(message.data());
    const LogCapture log;
    result = package.decode(memory.begin(), message.size());
    lines = linesOf(log.text());
    file = ACE_LOG_MSG->file();
  }
  /// Whether header and inner package are what they were.
  bool leftAlone() const { return sameHead(package.head(), before) && package.get()->count() == 2; }

  CQOV_OM_MsgPackage package;
  const QOVMsgHead before{package.head()};
  unsigned int result = 0;
  Lines lines;
  std::string file;
};

TEST(OmPackage, RefusesThirtyOneBytes) {
  Bytes message;
  message.head(0).data().pop_back();
  const Decoding decoding(message);
  EXPECT_EQ(decoding.result, kFailed);
  EXPECT_EQ(decoding.lines, kNoHead);
  EXPECT_TRUE(decoding.leftAlone());
}

TEST(OmPackage, RefusesBytesFromNowhere) {
  const LogCapture log;
  CQOV_OM_MsgPackage package(nullptr);
  EXPECT_EQ(package.decode(nullptr, 100), kFailed);
  EXPECT_EQ(linesOf(log.text()), kNoHead);
  EXPECT_EQ(package.get(), nullptr);
}

TEST(OmPackage, RefusesAnotherMagicOrVersionAndLeavesItselfAsItWas) {
  for (const std::size_t at : {0U, 3U, 4U}) {
    const Decoding decoding(writtenOut().set(at, 0x77));
    EXPECT_EQ(decoding.result, kFailed) << at;
    EXPECT_EQ(decoding.lines, kBadHead) << at;
    EXPECT_TRUE(decoding.leftAlone()) << at;
  }
}

TEST(OmPackage, TakesTheTypesOneToFourOnly) {
  for (unsigned int type = 0; type <= 6; ++type) {
    const bool good = type >= 1 && type <= 4;
    const Decoding decoding(writtenOut(28 + kInnerBody, type));
    EXPECT_EQ(decoding.result, good ? kInnerBody : kFailed) << type;
    EXPECT_EQ(decoding.lines, good ? Lines() : kBadHead) << type;
    EXPECT_EQ(decoding.leftAlone(), !good) << type;
  }
}

TEST(OmPackage, NamesTheSourceOfThePackageTemplateInItsRefusals) {
  const Decoding decoding(writtenOut(0, 5));
  EXPECT_NE(decoding.file.find("qov_message_package"), std::string::npos) << decoding.file;
}

TEST(OmPackage, TakesTheHeaderOverWhenTheInnerOneIsBad) {
  Bytes alone;
  const Decoding missing(alone.head(28).set(11, 1));
  EXPECT_EQ(missing.result, kFailed);
  EXPECT_EQ(missing.lines, kNoHead);
  EXPECT_EQ(missing.package.head().sn_, 7U);
  EXPECT_EQ(missing.package.get()->count(), 0U);
  const Decoding bad(writtenOut().set(32, 0x77));
  EXPECT_EQ(bad.result, kFailed);
  EXPECT_EQ(bad.lines, kBadHead);
  EXPECT_EQ(bad.package.head().sn_, 7U);
}

TEST(OmPackage, JudgesTheInnerRecordsAsAV3PackageDoes) {
  const Decoding decoding(writtenOut().set(70, 6 << 4 | 10));
  EXPECT_EQ(decoding.result, kFailed);
  EXPECT_EQ(
      decoding.lines,
      (Lines{kPlace + kFunctionV3 + " : data type unmated, received type is 10",
             kPlace + kFunctionV3 + " : it failed to parse record, buf size=53, parsing pos=28"}));
  EXPECT_EQ(decoding.package.get()->count(), 0U);
}

TEST(OmPackage, EncodesHeaderAndInnerPackageByteByByte) {
  Bytes expected = writtenOut();
  FencedMemory memory(expected.size());
  CQOV_OM_MsgPackage package(makeInner().release());
  fillHead(package);
  package.addRecord(5);
  CQOV_MsgPackage& base = package;
  ASSERT_EQ(base.encode(memory.begin(), expected.size()), expected.size());
  EXPECT_EQ(std::memcmp(memory.begin(), expected.begin(), expected.size()), 0);
  EXPECT_EQ(package.head().len_, 28 + kInnerBody);
  EXPECT_EQ(package.get()->head().len_, kInnerBody);
}

TEST(OmPackage, EncodesTheHeaderAloneWithoutAnInnerPackage) {
  Bytes expected;
  expected.head(0).set(11, 1);
  CQOV_OM_MsgPackage package(nullptr);
  fillHead(package);
  package.addRecord(5);
  package.head().len_ = 99;
  std::vector<unsigned char> buffer(32);
  EXPECT_EQ(package.encode(buffer.data(), 31), kFailed);
  ASSERT_EQ(package.encode(buffer.data(), 32), 32U);
  EXPECT_EQ(buffer, expected.data());
}

TEST(OmPackage, RefusesABufferThatIsOneByteShortAndSaysNothing) {
  const std::vector<unsigned char> untouched(writtenOut().size(), 0xEE);
  std::vector<unsigned char> buffer(untouched);
  CQOV_OM_MsgPackage package(makeInner().release());
  const LogCapture log;
  EXPECT_EQ(package.encode(buffer.data(), writtenOut().size() - 1), kFailed);
  EXPECT_EQ(package.encode(nullptr, 0), kFailed);
  EXPECT_EQ(log.text(), "");
  EXPECT_EQ(buffer, untouched);
  EXPECT_EQ(package.head().len_, 0U);
  EXPECT_EQ(package.get()->head().len_, 0U);
}

TEST(OmPackage, RefusesANullBufferAndSaysSo) {
  CQOV_OM_MsgPackage package(nullptr);
  const LogCapture log;
  EXPECT_EQ(package.encode(nullptr, 100), kFailed);
  EXPECT_EQ(linesOf(log.text()), Lines{"buf pointer is null!"});
}

/// A record of 65535 bytes, or more when further cells are appended.
std::unique_ptr<CTLVRecordV3> longestRecord() {
  const std::string value(65531, 'x');
  auto record = std::make_unique<CTLVRecordV3>(1);
  record->addOctets(1, value.data(), value.size());
  return record;
}

TEST(OmPackage, EncodesAnInnerRecordOf65535BytesAndNoLonger) {
  CQOV_OM_MsgPackage package(new CT7QPackageV3);
  package.get()->append(longestRecord().release());
  std::vector<unsigned char> buffer(70000, 0xEE);
  EXPECT_EQ(package.encode(buffer.data(), 70000), 32U + 28 + 10 + 65535);

  buffer.assign(70000, 0xEE);
  package.head().len_ = 99;
  (*package.get())[0].append(new CTLVCell());
  const LogCapture log;
  EXPECT_EQ(package.encode(buffer.data(), 70000), kFailed);
  EXPECT_EQ(linesOf(log.text()), Lines{"record is too long! record length=65539, limit=65535!"});
  EXPECT_EQ(buffer, std::vector<unsigned char>(70000, 0xEE));
  EXPECT_EQ(package.head().len_, 99U);
}

/// What the allocating encode() gives: what it returns, and `size` bytes of the buffer.
struct Allocated {
  Allocated(CQOV_MsgPackage& package, unsigned int size) {
    unsigned char* buffer = nullptr;
    returned = package.encode(buffer);
    const std::unique_ptr<unsigned char[]> own(buffer);
    bytes.assign(buffer, buffer + size);
  }
  unsigned int returned = 0;
  std::vector<unsigned char> bytes;
};

TEST(OmPackage, AllocatesForAHeaderAlone) {
  Bytes expected;
  expected.head(0).set(11, 1);
  CQOV_OM_MsgPackage package(nullptr);
  fillHead(package);
  package.addRecord(5);
  const Allocated got(package, 32);
  EXPECT_EQ(got.returned, 32U);
  EXPECT_EQ(got.bytes, expected.data());
}

TEST(OmPackage, AllocatesForTheHeaderTwiceAndZeroesTheRest) {
  Bytes expected;
  expected.head(28 + kInnerBody).set(11, 1).head(kInnerBody).set(32 + 11, 1);
  expected.fill(60 + kInnerBody - 64, 0);
  CQOV_OM_MsgPackage package(makeInner().release());
  fillHead(package);
  const Allocated got(package, expected.size());
  EXPECT_EQ(got.returned, 60 + kInnerBody);
  EXPECT_EQ(got.bytes, expected.data());
  EXPECT_EQ(package.head().len_, kInnerBody);
}

TEST(OmPackage, AllocatesRoomForOwnRecordsThatAreLongerThanItSays) {
  Bytes expected;
  expected.head(28 + kInnerBody).set(11, 1).head(kInnerBody).set(32 + 11, 1);
  expected.record(5, 4 + 100).cell(7, 1, 100).fill(100, 'x').record(6, 0);
  CQOV_OM_MsgPackage package(makeInner().release());
  fillHead(package);
  package.addRecord(5).addOctets(7, std::string(100, 'x').data(), 100);
  package.addRecord(6);
  const Allocated got(package, expected.size());
  EXPECT_EQ(got.returned, 60 + kInnerBody);
  EXPECT_EQ(got.bytes, expected.data());
}

TEST(OmPackage, AllocatesSixtyFourBytesForAnEmptyInnerPackage) {
  Bytes expected;
  expected.head(28).set(11, 1).head(0).set(32 + 11, 1);
  CQOV_OM_MsgPackage package(new CT7QPackageV3);
  fillHead(package);
  const Allocated got(package, expected.size());
  EXPECT_EQ(got.returned, 60U);
  EXPECT_EQ(got.bytes, expected.data());
}

TEST(OmPackage, AllocatesNothingForAnOwnRecordThatIsTooLong) {
  CQOV_OM_MsgPackage package(new CT7QPackageV3);
  package.append(longestRecord().release());
  package[0].append(new CTLVCell());
  package.head().len_ = 99;
  unsigned char own = 0;
  unsigned char* buffer = &own;
  const LogCapture log;
  EXPECT_EQ(package.encode(buffer), kFailed);
  EXPECT_EQ(buffer, nullptr);
  EXPECT_EQ(linesOf(log.text()), Lines{"record is too long! record length=65539, limit=65535!"});
  EXPECT_EQ(package.head().len_, 99U);
}

TEST(OmPackage, DumpsTheInnerPackageBehindItsOwnText) {
  CQOV_OM_MsgPackage package(makeInner().release());
  package.head().sn_ = 7;
  package.addRecord(5);
  const std::string outer =
      "{\n  VER=1\n  TYP=0\n  MST=0\n  SPID=255\n  SMID=255\n  RPID=255\n  RMID=255\n  CID=-1\n"
      "  SN=7\n  OPC=0\n  LEN=0\n  {/*record*/\n    cmd = 5, length = 0\n  }\n}\n";
  // SHA-256 of the text 4294967295 ends in 351b080c60.
  const std::string inner =
      "{\nRET=0\nSSK=351b080c60\nNID=65533\nBID=65535\nSER=65535\nLEN=0\n"
      "  {/*record*/\n    cmd = 72623859790382856, length = 5\n    {T,L,V=6,1,Uint: 200}\n  }\n"
      "  {/*record*/\n    cmd = 2, length = 0\n  }\n}\n";
  const CQOV_MsgPackage& base = package;
  EXPECT_EQ(dumpOf(base), outer + inner);
  package.set(nullptr);
  EXPECT_EQ(dumpOf(base), outer);
}

/// What the factory makes for a header with those flags; all its other fields are unusual.
std::unique_ptr<CQOV_MsgPackage> madeFor(unsigned int flags) {
  QOVMsgHead head;
  std::memset(static_cast<void*>(&head), 0x11, sizeof head);
  head.flags_ = static_cast<std::uint8_t>(flags);
  return std::unique_ptr<CQOV_MsgPackage>(CreateQovMsgPackage(head));
}

TEST(OmPackageFactory, MakesAnOmPackageForBit0OfTheFlags) {
  for (const unsigned int flags : {1U, 3U, 0xFFU}) {
    QOVMsgHead expected;
    const std::unique_ptr<CQOV_MsgPackage> made = madeFor(flags);
    expected.sn_ = made->head().sn_;
    expected.flags_ = 1;
    EXPECT_TRUE(sameHead(made->head(), expected)) << flags;
    const auto* om = dynamic_cast<CQOV_OM_MsgPackage*>(made.get());
    ASSERT_NE(om, nullptr) << flags;
    EXPECT_EQ(om->get(), nullptr);
  }
}

TEST(OmPackageFactory, MakesAPlainPackageForAllOthers) {
  for (const unsigned int flags : {0U, 2U, 0xFEU}) {
    QOVMsgHead expected;
    const std::unique_ptr<CQOV_MsgPackage> made = madeFor(flags);
    expected.sn_ = made->head().sn_;
    EXPECT_TRUE(sameHead(made->head(), expected)) << flags;
    EXPECT_EQ(dynamic_cast<CQOV_OM_MsgPackage*>(made.get()), nullptr) << flags;
  }
}

}  // namespace
