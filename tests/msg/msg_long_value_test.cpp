// Values that are longer than what a cell holds: where they stand, and who frees them. In a program
// that counts and fails allocations.
#include <gtest/gtest.h>
#include <qovpub/qov_message_package.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/failing_allocations.h"

namespace {

using qov::test::allocations;
using qov::test::FailingAllocations;
using qov::test::heldBytes;

const std::string kLong = "a text of more than nineteen bytes";
const std::string kSameLength = "another one of just as many bytes!";

std::unique_ptr<unsigned char[]> bytesOf(const std::string& text) {
  std::unique_ptr<unsigned char[]> bytes(new unsigned char[text.size()]);
  std::memcpy(bytes.get(), text.data(), text.size());
  return bytes;
}

TEST(LongValue, StandsInThePackageThatMakesItsCell) {
  const long before = allocations();
  CT7QPackageV3 package;
  CTLVRecordV3& record = package.addRecord(1);
  record.addString(1, kLong).addOctets(2, kLong.data(), kLong.size());
  unsigned char bytes[200];
  const unsigned int size = package.encode(bytes, sizeof bytes);
  CT7QPackageV3 decoded;
  ASSERT_NE(decoded.decode(bytes, size), CT7QPackageV3::kFailed);
  EXPECT_EQ(allocations(), before);
  EXPECT_EQ(decoded[0].getString(1), kLong);
  EXPECT_EQ(decoded[0].getOctets(2), kLong);
  EXPECT_EQ(decoded[0].find(1)->length(), kLong.size() + 1);
}

/// A text in which a stretch at a wrong place shows.
std::string countingText(std::size_t length) {
  std::string made;
  for (unsigned int i = 0; made.size() < length; ++i) {
    made += std::to_string(i) + ' ';
  }
  made.resize(length);
  return made;
}

/// From what just does not fit into a cell to what no block has room for.
TEST(LongValue, IsWholeWhateverItsLength) {
  CT7QPackageV3 package;
  CTLVRecordV3& record = package.addRecord(1);
  for (unsigned short length = 17; length < 1200;
       length = static_cast<unsigned short>(length + (length < 150 ? 1 : 17))) {
    record.addString(length, countingText(length)).addUnsigned(4000, length);
  }
  std::vector<unsigned char> bytes(70000);
  const unsigned int size = package.encode(bytes.data(), static_cast<unsigned int>(bytes.size()));
  CT7QPackageV3 decoded;
  ASSERT_EQ(decoded.decode(bytes.data(), size), size - sizeof(TLVMsgHeadV3));
  for (const CT7QPackageV3* each : {&package, &decoded}) {
    ASSERT_EQ((*each)[0].count(), record.count());
    for (const CTLVCell& cell : (*each)[0]) {
      if (cell.type() == CTLVCell::TLV_STRING) {
        ASSERT_EQ(cell.getString(), countingText(cell.tag()));
      }
    }
  }
}

TEST(LongValue, MayBeReplacedInItsPlace) {
  for (const std::string& text : {kSameLength, std::string("short"), std::string(500, 'b')}) {
    CQOV_MsgPackage package;
    CTLVRecordV3& record = package.addRecord(1);
    for (unsigned short tag = 0; tag < 3; ++tag) {
      record.addString(tag, kLong);
    }
    record[0].setString(0, text);
    CTLVCell other;
    other.setString(1, text);
    record[1] = std::move(other);
    record[2].setOctets(2, bytesOf(text), text.size());
    EXPECT_EQ(record.getString(0), text);
    EXPECT_EQ(record.getString(1), text);
    EXPECT_EQ(record.getOctets(2), text);
    EXPECT_EQ(record.length(), CTLVRecordV3(record).length());
    record[0].setUnsigned(0, 7);
    record[0].setString(0, kLong);
    EXPECT_EQ(record.getString(0), kLong);
  }
}

TEST(LongValue, MayBePartOfItsNextOne) {
  CQOV_MsgPackage package;
  CTLVRecordV3& record = package.addRecord(1);
  record.addString(1, kLong);
  record.addString(2, record.getString(1));
  record[1].setString(1, record.getString(1).substr(2));
  EXPECT_EQ(record.getString(1), kLong.substr(2));
  record[1].setString(1, record.getString(1).substr(20));
  EXPECT_EQ(record.getString(1), kLong.substr(22));
  EXPECT_EQ(record.getString(2), kLong);
}

TEST(LongValue, OutlivesThePackageInACellMovedOutOfIt) {
  CTLVCell cell;
  {
    CQOV_MsgPackage package;
    CTLVRecordV3& record = package.addRecord(1);
    record.addString(1, kLong);
    cell = std::move(record[1]);
    EXPECT_EQ(record[1].length(), 0U);
    EXPECT_EQ(record.length(), 4U);
  }
  EXPECT_EQ(cell.getString(), kLong);
}

TEST(LongValue, StaysInItsCellWhenThereIsNoMemoryToMoveIt) {
  CQOV_MsgPackage package;
  CTLVRecordV3& record = package.addRecord(1);
  record.addString(1, kLong);
  CTLVCell cell;
  cell.setUnsigned(2, 3);
  errno = 0;
  {
    const FailingAllocations fail(0);
    cell = std::move(record[1]);
  }
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(cell.getUnsigned(), 3U);
  EXPECT_EQ(record.getString(1), kLong);
}

TEST(LongValue, IsNotLostWhereItCannotBeAddedToAnotherRecord) {
  CQOV_MsgPackage package;
  CTLVRecordV3& record = package.addRecord(1);
  record.addString(1, kLong);
  CTLVRecordV3 other(2);
  other.addUnsigned(2, 3);
  {
    const FailingAllocations fail(0);
    EXPECT_THROW(other.add(std::move(record[1])), std::bad_alloc);
  }
  EXPECT_EQ(1U, other.count());
  EXPECT_EQ(record.getString(1), kLong);
  other.add(std::move(record[1]));
  EXPECT_EQ(other.getString(1), kLong);
}

TEST(LongValue, StaysInItsCellWhenItCannotReplaceAnother) {
  CQOV_MsgPackage package;
  CTLVRecordV3& record = package.addRecord(1);
  record.addString(1, kLong);
  CTLVRecordV3 other(2);
  other.addUnsigned(1, 3);
  {
    const FailingAllocations fail(0);
    EXPECT_THROW(other.replace(std::move(record[1])), std::bad_alloc);
  }
  EXPECT_EQ(other.getUnsigned(1), 3U);
  EXPECT_EQ(record.getString(1), kLong);
  EXPECT_TRUE(other.replace(std::move(record[1])));
  EXPECT_EQ(other.getString(1), kLong);
}

/// The orders in which the room of values could be lost: last in first out, and in turn.
TEST(LongValue, LeavesARecordAsItComesAndGoes) {
  for (const bool fromTheFront : {false, true}) {
    CQOV_MsgPackage package;
    CTLVRecordV3& record = package.addRecord(1);
    long held = 0;
    for (int round = 0; round < 2; ++round) {
      held = heldBytes();
      for (unsigned int i = 0; i < 1000; ++i) {
        record.addString(1, kLong).addString(2, kSameLength);
        ASSERT_EQ(record.erase(fromTheFront ? 1 : 2), 1U);
        ASSERT_EQ(record.erase(fromTheFront ? 2 : 1), 1U);
      }
    }
    EXPECT_LE(heldBytes(), held);
    record.addString(1, kLong);
    package.addRecord(2).addString(1, kSameLength);
    EXPECT_EQ(record.getString(1), kLong);
    EXPECT_EQ(package[1].getString(1), kSameLength);
  }
}

TEST(TakenOctets, AreNotCopied) {
  const std::string text(60000, 'x');
  CQOV_MsgPackage package;
  CTLVRecordV3& record = package.addRecord(1);
  std::unique_ptr<unsigned char[]> bytes = bytesOf(text);
  const unsigned char* const there = bytes.get();
  const long before = allocations();
  record.addOctets(1, std::move(bytes), text.size());
  EXPECT_EQ(allocations(), before);
  EXPECT_EQ(record[1].value(), there);
  EXPECT_EQ(record.getOctets(1), text);
  EXPECT_EQ(record.length(), 60004U);
}

TEST(TakenOctets, AreCopiedIntoACellThatHoldsThem) {
  for (const std::size_t length : {0U, 1U, 19U, 20U}) {
    const std::string text(length, 'x');
    CTLVCell cell;
    cell.setOctets(1, bytesOf(text), text.size());
    EXPECT_EQ(cell.type(), CTLVCell::TLV_OCTET);
    EXPECT_EQ(cell.getOctets(), text);
    CTLVRecordV3 record;
    record.addOctets(1, bytesOf(text), text.size());
    EXPECT_EQ(record.getOctets(1), text);
  }
  CTLVCell cell;
  cell.setOctets(1, std::unique_ptr<unsigned char[]>(), 5);
  EXPECT_EQ(cell.length(), 0U);
  EXPECT_EQ(cell.tag(), 1U);
}

TEST(TakenOctets, AreFreedWhenTheyCannotBeSet) {
  const std::string text(65536, 'x');
  CTLVRecordV3 record;
  record.addUnsigned(7, 1);
  const long held = heldBytes();
  EXPECT_THROW(record[7].setOctets(1, bytesOf(text), 65536), CQOV_Exception);
  EXPECT_THROW(record[7].setOctets(4096, bytesOf(text), 100), CQOV_Exception);
  EXPECT_THROW(record.addOctets(4096, bytesOf(text), 100), CQOV_Exception);
  // One byte more than the record has left.
  EXPECT_THROW(record.addOctets(1, bytesOf(text), 65535 - 5 - 4 + 1), CQOV_Exception);
  EXPECT_EQ(heldBytes(), held);
  EXPECT_EQ(record.getUnsigned(7), 1U);
  record.addOctets(1, bytesOf(text), 65535 - 5 - 4);
  EXPECT_EQ(record.length(), 65535U);
}

}  // namespace
