#include <gtest/gtest.h>
#include <qovpub/qov_om_message_package.h>

#include <set>
#include <string>
#include <vector>

#include "tests/diag/log_capture.h"
#include "tests/msg/bytes.h"

namespace {

using qov::DecodeFault;
using qov::tests::Bytes;
using Kind = DecodeFault::Kind;

/// The fault of these bytes in a package of that kind.
template <class Package>
DecodeFault faultOf(Package&& package, Bytes message) {
  const std::vector<unsigned char>& bytes = message.data();
  const LogCapture log;
  EXPECT_EQ(package.decode(bytes.data(), static_cast<unsigned int>(bytes.size())),
            CQOV_MsgPackage::kFailed);
  return package.decodeFault();
}

void expectFault(const DecodeFault& fault, Kind kind, unsigned int pos, unsigned int value,
                 unsigned int limit) {
  EXPECT_EQ(fault.kind, kind);
  EXPECT_EQ(fault.pos, pos);
  EXPECT_EQ(fault.value, value);
  EXPECT_EQ(fault.limit, limit);
}

Bytes v3(unsigned int len) {
  Bytes message;
  message.headV3(len);
  return message;
}

TEST(DecodeFault, IsNoneBeforeAndAfterAMessageThatIsGood) {
  CT7QPackageV3 package;
  expectFault(package.decodeFault(), Kind::kNone, 0, 0, 0);
  faultOf(package, v3(1));
  Bytes good = v3(0);
  EXPECT_EQ(package.decode(good.begin(), good.size()), 0U);
  expectFault(package.decodeFault(), Kind::kNone, 0, 0, 0);
}

TEST(DecodeFault, SaysWhatIsWrongWithAHeader) {
  Bytes cut = v3(0);
  cut.data().pop_back();
  expectFault(faultOf(CT7QPackageV3(), cut), Kind::kHeadShort, 0, 27, 28);
  expectFault(faultOf(CT7QPackageV3(), v3(0).set(1, 0)), Kind::kMagic, 0, 0x55550055, 0x55555555);
  expectFault(faultOf(CT7QPackageV3(), v3(0).set(4, 2)), Kind::kVersion, 4, 2, 3);
  expectFault(faultOf(CT7QPackageV3(), v3(100)), Kind::kLength, 24, 100, 0);
  Bytes internal;
  internal.head(0, 5);
  expectFault(faultOf(CQOV_MsgPackage(), internal), Kind::kType, 5, 5, 4);
}

TEST(DecodeFault, SaysWhatIsWrongWithARecordAndWhere) {
  expectFault(faultOf(CT7QPackageV3(), v3(10 + 9).record(1, 0).fill(9, 0)), Kind::kRecordShort, 38,
              9, 10);
  expectFault(faultOf(CT7QPackageV3(), v3(10 + 15).record(1, 0).record(1, 6).cell(1, 3, 1).u8(1)),
              Kind::kRecordLength, 38 + 8, 6, 5);
  expectFault(faultOf(CT7QPackageV3(), v3(18).record(1, 8).cell(1, 3, 1).u8(1).fill(3, 0)),
              Kind::kCellShort, 28 + 15, 3, 4);
  expectFault(faultOf(CT7QPackageV3(), v3(15).record(1, 5).cell(1, 11, 1).u8(1)), Kind::kCellType,
              38, 11, 9);
  expectFault(faultOf(CT7QPackageV3(), v3(15).record(1, 5).cell(1, 3, 2).u8(1)), Kind::kCellLength,
              40, 2, 1);
  // The cell's head ends in the next record.
  expectFault(faultOf(CT7QPackageV3(), v3(22).record(1, 2).u16(0x13).record(2, 0)),
              Kind::kCellLength, 40, 2, 0);
}

TEST(DecodeFault, CountsPlacesInAnOmMessageFromItsStart) {
  Bytes message;
  message.head(28 + 15).headV3(15).record(1, 5).cell(1, 12, 1).u8(1);
  expectFault(faultOf(CQOV_OM_MsgPackage(nullptr), message), Kind::kCellType, 32 + 38, 12, 9);
  expectFault(faultOf(CQOV_OM_MsgPackage(nullptr), Bytes(message).set(5, 9)), Kind::kType, 5, 9, 4);
  expectFault(faultOf(CQOV_OM_MsgPackage(nullptr), Bytes(message).set(32, 0)), Kind::kMagic, 32,
              0x55555500, 0x55555555);
}

TEST(DecodeFault, IsThereForARecordAloneToo) {
  CT7QPackageV3 package;
  CTLVRecordV3* record = nullptr;
  Bytes bytes;
  bytes.record(1, 5).cell(1, 10, 1).u8(1);
  const LogCapture log;
  EXPECT_EQ(package.getRecord(bytes.begin(), bytes.size(), record), 0U);
  expectFault(package.decodeFault(), Kind::kCellType, 10, 10, 9);
  bytes.set(10, 0x13);
  EXPECT_EQ(package.getRecord(bytes.begin(), bytes.size(), record), 15U);
  delete record;
  expectFault(package.decodeFault(), Kind::kNone, 0, 0, 0);
}

TEST(DecodeFault, HasAnotherTextForEveryKind) {
  std::set<std::string> texts;
  for (unsigned char kind = 0; kind <= static_cast<unsigned char>(Kind::kNoMemory); ++kind) {
    texts.insert(DecodeFault{static_cast<Kind>(kind)}.text());
  }
  EXPECT_EQ(texts.size(), static_cast<std::size_t>(Kind::kNoMemory) + 1);
}

TEST(DecodeConst, TakesBytesThatMustNotBeChanged) {
  Bytes message = v3(10).record(7, 0);
  const std::vector<unsigned char> bytes = message.data();
  CT7QPackageV3 package;
  EXPECT_EQ(package.decode(bytes.data(), message.size()), 10U);
  EXPECT_EQ(package.decode(message.begin(), message.size()), 10U);
  EXPECT_EQ(package.count(), 2U);
  const LogCapture log;
  EXPECT_EQ(package.decode(nullptr, 100), CT7QPackageV3::kFailed);
}

TEST(DecodeConst, IsTheOmPackagesOwn) {
  Bytes message;
  message.head(28 + 10).headV3(10).record(7, 0);
  const std::vector<unsigned char> bytes = message.data();
  CQOV_OM_MsgPackage package(nullptr);
  EXPECT_EQ(package.decode(bytes.data(), message.size()), 10U);
  ASSERT_NE(package.get(), nullptr);
  EXPECT_EQ(package.get()->count(), 1U);
  CQOV_MsgPackage& base = package;
  EXPECT_EQ(base.decode(bytes.data(), message.size()), 10U);
  EXPECT_EQ(package.get()->count(), 1U);
}

}  // namespace
