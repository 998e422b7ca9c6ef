// Moves of cells, records and packages, in a program that counts and fails allocations.
#include <gtest/gtest.h>
#include <qovpub/qov_om_message_package.h>

#include <cerrno>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/support/failing_allocations.h"

namespace {

using qov::test::allocations;
using qov::test::FailingAllocations;

static_assert(std::is_nothrow_move_constructible_v<CTLVCell>);
static_assert(std::is_nothrow_move_assignable_v<CTLVCell>);
static_assert(std::is_nothrow_move_constructible_v<CTLVRecordV3>);
static_assert(std::is_nothrow_move_assignable_v<CTLVRecordV3>);
static_assert(std::is_nothrow_move_constructible_v<CQOV_MsgPackage>);
static_assert(std::is_nothrow_move_assignable_v<CT7QPackageV3>);
static_assert(std::is_nothrow_move_constructible_v<CQOV_OM_MsgPackage>);
static_assert(std::is_nothrow_move_assignable_v<CQOV_OM_MsgPackage>);

const std::string kLong = "a text of more than nineteen bytes";

void fill(CTLVRecordV3& record, unsigned short cells) {
  for (unsigned short tag = 0; tag < cells; ++tag) {
    if (tag % 7 == 3) {
      record.append(new CTLVCell(CTLVCell::TLV_OCTET, tag, kLong.data(), kLong.size()));
    } else if (tag % 2 == 0) {
      record.addUnsigned(tag, tag);
    } else {
      record.addString(tag, kLong);
    }
  }
}

void fill(CQOV_MsgPackage& package, unsigned int records, unsigned short cells) {
  for (unsigned int r = 0; r < records; ++r) {
    fill(package.addRecord(r), cells);
  }
}

/// Equal cells, and the record hears of its cells' changes and can grow.
void isWhole(CTLVRecordV3& record, const CTLVRecordV3& expected) {
  ASSERT_EQ(record.cmd(), expected.cmd());
  ASSERT_EQ(record.count(), expected.count());
  ASSERT_EQ(record.length(), expected.length());
  auto other = expected.begin();
  for (const CTLVCell& cell : record) {
    ASSERT_EQ(cell, *other++);
    ASSERT_EQ(record[cell.tag()], cell);
  }
  record.addString(3000, kLong);
  record[3000].setUnsigned(3001, 1);
  EXPECT_EQ(record.getUnsigned(3001), 1U);
  if (record.count() > 1) {
    CTLVCell& first = *record.begin();
    first.setUnsigned(3002, 70000);
    EXPECT_EQ(record.find(3002), &first);
  }
  EXPECT_EQ(record.length(), CTLVRecordV3(record).length());
}

TEST(MoveRecord, AllocatesNothingAndKeepsReferences) {
  for (const unsigned short cells : std::vector<unsigned short>{0, 1, 5, 100, 300}) {
    CTLVRecordV3 record(5);
    fill(record, cells);
    const CTLVRecordV3 expected(record);
    const CTLVCell* const last =
        cells > 0 ? &record[static_cast<unsigned short>(cells - 1)] : nullptr;
    const long before = allocations();
    CTLVRecordV3 moved(std::move(record));
    EXPECT_EQ(allocations(), before);
    EXPECT_EQ(record.cmd(), 5U);
    EXPECT_EQ(record.count(), 0U);
    EXPECT_EQ(record.length(), 0U);
    EXPECT_EQ(record.find(0), nullptr);
    EXPECT_TRUE(last == nullptr || last == &moved[last->tag()]);
    isWhole(moved, expected);
    record.addUnsigned(1, 1);
    EXPECT_EQ(record.getUnsigned(1), 1U);
  }
}

TEST(MoveRecord, IntoOneThatIsThere) {
  CTLVRecordV3 record(5);
  fill(record, 100);
  const CTLVRecordV3 expected(record);
  CTLVRecordV3 other(6);
  fill(other, 10);
  const long before = allocations();
  other = std::move(record);
  EXPECT_EQ(allocations(), before);
  CTLVRecordV3& same = other;
  other = std::move(same);
  isWhole(other, expected);
  EXPECT_EQ(record.count(), 0U);
}

TEST(MoveRecord, IntoAPackageAllocatesForItsPlaceOnly) {
  CTLVRecordV3 record(5);
  fill(record, 300);
  const CTLVRecordV3 expected(record);
  CQOV_MsgPackage package;
  const long before = allocations();
  package.addRecord(1) = std::move(record);
  EXPECT_EQ(allocations(), before);
  isWhole(package[0], expected);
}

TEST(MoveRecord, OutOfAPackageTakesTheCellsAlong) {
  for (const unsigned short cells : std::vector<unsigned short>{0, 1, 20, 41, 300}) {
    CTLVRecordV3 own;
    CTLVRecordV3 expected;
    {
      CQOV_MsgPackage package;
      fill(package, 3, cells);
      expected = package[2];
      own = std::move(package[2]);
      EXPECT_EQ(package[2].count(), 0U);
      EXPECT_EQ(package[2].cmd(), 2U);
      fill(package[2], 5);
      fill(package.addRecord(4), 5);
      EXPECT_EQ(package[2].count(), 5U);
      EXPECT_EQ(package[0].count(), cells);
    }
    isWhole(own, expected);
  }
}

TEST(MoveRecord, OutOfAPackageLeavesTheCellsThereWithoutMemory) {
  CQOV_MsgPackage package;
  fill(package, 1, 100);
  const CTLVRecordV3 expected(package[0]);
  for (long count = 0; count < 3; ++count) {
    errno = 0;
    const FailingAllocations fail(count);
    const CTLVRecordV3 moved(std::move(package[0]));
    ASSERT_TRUE(fail.hasFailed());
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(moved.count(), 0U);
  }
  isWhole(package[0], expected);
}

TEST(MovePackage, AllocatesNothing) {
  for (const unsigned int records : {0U, 1U, 2U, 4U, 5U, 100U}) {
    for (const unsigned short cells : std::vector<unsigned short>{0, 1, 4, 20, 100}) {
      CQOV_MsgPackage package;
      package.head().opc_ = 7;
      fill(package, records, cells);
      package.append(new CTLVRecordV3(99));
      if (records > 0) {
        package[0] = CTLVRecordV3(package[0]);
      }
      CQOV_MsgPackage expected(package);
      const long before = allocations();
      CQOV_MsgPackage moved(std::move(package));
      EXPECT_EQ(allocations(), before);
      EXPECT_EQ(moved.head().sn_, package.head().sn_);
      EXPECT_EQ(moved.head().opc_, 7U);
      EXPECT_EQ(package.count(), 0U);
      ASSERT_EQ(moved.count(), records + 1);
      for (unsigned int r = 0; r < moved.count(); ++r) {
        isWhole(moved[r], expected[r]);
      }
      fill(moved.addRecord(50), 30);
      EXPECT_EQ(moved[records + 1].count(), 30U);
      fill(package, 6, 30);
      EXPECT_EQ(package[5].count(), 30U);
    }
  }
}

TEST(MovePackage, LetsItsNewestRecordGrowOn) {
  CT7QPackageV3 package;
  package.addRecord(1).addUnsigned(0, 0);
  CT7QPackageV3 moved(std::move(package));
  package.addRecord(2);
  for (unsigned short tag = 1; tag < 200; ++tag) {
    moved[0].addUnsigned(tag, tag);
    package[0].addUnsigned(tag, 2 * tag);
  }
  EXPECT_EQ(moved[0].getUnsigned(199), 199U);
  EXPECT_EQ(package[0].getUnsigned(199), 398U);
}

TEST(MovePackage, IntoOneThatIsThere) {
  CQOV_MsgPackage package;
  fill(package, 100, 20);
  CQOV_MsgPackage expected(package);
  CQOV_MsgPackage other;
  fill(other, 3, 30);
  const long before = allocations();
  other = std::move(package);
  CQOV_MsgPackage& same = other;
  other = std::move(same);
  EXPECT_EQ(allocations(), before);
  ASSERT_EQ(other.count(), 100U);
  for (unsigned int r = 0; r < 100; ++r) {
    isWhole(other[r], expected[r]);
  }
}

TEST(MovePackage, KeepsTheInnerPackageOfAnOmPackage) {
  auto* const inner = new CT7QPackageV3;
  inner->addRecord(1).addString(1, kLong);
  CQOV_OM_MsgPackage package(inner);
  package.addRecord(2).addUnsigned(1, 1);
  const long before = allocations();
  CQOV_OM_MsgPackage moved(std::move(package));
  EXPECT_EQ(allocations(), before);
  EXPECT_EQ(moved.get(), inner);
  EXPECT_EQ(moved.count(), 1U);
  EXPECT_EQ(package.get(), nullptr);
  CQOV_OM_MsgPackage other(new CT7QPackageV3);
  other = std::move(moved);
  EXPECT_EQ(other.get(), inner);
  EXPECT_EQ(other[0].getUnsigned(1), 1U);
}

TEST(PackageErase, TakesRecordsOutWhereverTheyStand) {
  for (unsigned int gone = 0; gone < 8; ++gone) {
    CQOV_MsgPackage package;
    fill(package, 7, 15);
    package.append(new CTLVRecordV3(7));
    package.erase(gone);
    ASSERT_EQ(package.count(), 7U);
    std::vector<std::uint64_t> cmds;
    for (const CTLVRecordV3& record : static_cast<const CQOV_MsgPackage&>(package)) {
      cmds.push_back(record.cmd());
    }
    for (unsigned int i = 0; i < 7; ++i) {
      EXPECT_EQ(cmds[i], i < gone ? i : i + 1);
    }
    fill(package.addRecord(8), 100);
    EXPECT_EQ(package[7].count(), 100U);
    EXPECT_EQ(package[0].count(), 15U);
  }
  CQOV_MsgPackage package;
  EXPECT_THROW(package.erase(0), CQOV_Exception);
}

TEST(PackageReplace, TakesARecordOverInThePlaceOfAnother) {
  CQOV_MsgPackage package;
  fill(package, 3, 15);
  auto* const record = new CTLVRecordV3(77);
  package.replace(2, record);
  EXPECT_EQ(&package[2], record);
  EXPECT_THROW(package.replace(1, record), CQOV_Exception);
  package.replace(1, nullptr);
  const auto spare = std::make_unique<CTLVRecordV3>(78);
  EXPECT_THROW(package.replace(3, spare.get()), CQOV_Exception);
  EXPECT_EQ(package.count(), 3U);
  EXPECT_EQ(package[1].cmd(), 1U);
  fill(package.addRecord(4), 50);
  EXPECT_EQ(package[3].count(), 50U);
}

TEST(PackageRange, GoesOverTheRecordsInTheirOrder) {
  CT7QPackageV3 package;
  for (CTLVRecordV3& record : package) {
    ADD_FAILURE() << record.cmd();
  }
  for (unsigned int cmd = 0; cmd < 10; ++cmd) {
    package.addRecord(cmd);
  }
  for (CTLVRecordV3& record : package) {
    record.addUnsigned(1, record.cmd());
  }
  std::uint64_t expected = 0;
  for (const CTLVRecordV3& record : static_cast<const CT7QPackageV3&>(package)) {
    EXPECT_EQ(record.getUnsigned(1), expected++);
  }
  EXPECT_EQ(expected, 10U);
}

}  // namespace
