// What a record holds while cells come and go, in a program that counts allocated bytes.
#include <gtest/gtest.h>
#include <qovpub/qov_message_package.h>

#include <iterator>
#include <utility>

#include "tests/support/failing_allocations.h"

namespace {

using qov::test::heldBytes;

constexpr unsigned short kCells = 50;

/// Lets each cell make way for a new one at the end, several times.
void turnOver(CTLVRecordV3& record) {
  for (unsigned int i = 0; i < 100U * kCells; ++i) {
    record.erase(record.begin());
    record.addUnsigned(static_cast<unsigned short>(i % kCells), i % kCells);
  }
}

void fill(CTLVRecordV3& record) {
  for (unsigned short tag = 0; tag < kCells; ++tag) {
    record.addUnsigned(tag, tag);
  }
}

/// Whether the cells are those of fill(), also after a change through a reference.
void isWhole(CTLVRecordV3& record) {
  CTLVRecordV3 expected(record.cmd());
  fill(expected);
  ASSERT_EQ(record.count(), kCells);
  auto other = expected.begin();
  for (const CTLVCell& cell : record) {
    ASSERT_EQ(cell, *other++);
  }
  record[kCells - 1].setUnsigned(1000, 70000);
  EXPECT_EQ(record.getUnsigned(1000), 70000U);
  EXPECT_EQ(record.length(), CTLVRecordV3(record).length());
}

TEST(RecordGrowth, EndsWhileAsManyCellsGoAsCome) {
  CTLVRecordV3 record;
  fill(record);
  turnOver(record);
  const long held = heldBytes();
  turnOver(record);
  EXPECT_LE(heldBytes(), held);
  isWhole(record);
}

TEST(RecordGrowth, EndsInThePackageThatMadeTheRecord) {
  CQOV_MsgPackage package;
  CTLVRecordV3& record = package.addRecord(1);
  fill(record);
  turnOver(record);
  const long held = heldBytes();
  turnOver(record);
  EXPECT_LE(heldBytes(), held);
  isWhole(record);
  CTLVRecordV3& next = package.addRecord(2);
  fill(next);
  isWhole(next);
  const CQOV_MsgPackage copy(package);
  const CQOV_MsgPackage moved(std::move(package));
  EXPECT_EQ(moved[0].length(), copy[0].length());
}

TEST(RecordGrowth, EndsForCellsFromAppend) {
  CTLVRecordV3 record;
  long held = 0;
  for (int round = 0; round < 2; ++round) {
    held = heldBytes();
    for (unsigned int i = 0; i < 1000; ++i) {
      record.append(new CTLVCell(CTLVCell::TLV_OCTET, 1, "abc", 3));
      if (record.count() > kCells) {
        record.erase(record.begin());
      }
    }
  }
  EXPECT_LE(heldBytes(), held);
  EXPECT_EQ(record.length(), kCells * 7U);
}

TEST(RecordGrowth, TakesBlocksOutAnywhere) {
  for (const unsigned int from : {0U, 1U, 40U, 41U, 100U, 250U}) {
    CTLVRecordV3 record;
    for (unsigned short tag = 0; tag < 300; ++tag) {
      record.addUnsigned(tag, tag);
    }
    const long full = heldBytes();
    auto at = std::next(record.begin(), from);
    while (at != record.end() && at->tag() < from + 45) {
      at = record.erase(at);
    }
    EXPECT_EQ(record.count(), 255U);
    EXPECT_EQ(at->tag(), from + 45);
    CTLVRecordV3 moved(std::move(record));
    moved.addUnsigned(300, 1);
    EXPECT_EQ(moved.length(), CTLVRecordV3(moved).length());
    EXPECT_LE(heldBytes(), full);
  }
}

}  // namespace
