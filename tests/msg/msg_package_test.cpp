#include <gtest/gtest.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_message_package.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/diag/log_capture.h"
#include "tests/msg/bytes.h"

namespace {

using qov::tests::Bytes;
using qov::tests::FencedMemory;

template <class Package>
std::vector<unsigned char> encoded(Package& package) {
  unsigned char* bytes = nullptr;
  const unsigned int size = package.encode(bytes);
  EXPECT_NE(size, Package::kFailed);
  const std::unique_ptr<unsigned char[]> own(bytes);
  return {bytes, bytes + size};
}

TEST(Package, EncodesAV3MessageWithoutRecordsToItsHeader) {
  CT7QPackageV3 package;
  Bytes expected;
  expected.headV3(0);
  EXPECT_EQ(encoded(package), expected.data());
  EXPECT_EQ(package.decode(expected.begin(), expected.size()), 0U);
}

Bytes writtenOut(bool internal) {
  Bytes message;
  constexpr unsigned int kBody = 10 + (4 + 1) + (4 + 2) + (4 + 4) + 10 + (4 + 21) + (4 + 0) + 10;
  if (internal) {
    message.head(kBody);
  } else {
    message.headV3(kBody);
  }
  message.record(0x0102030405060708, 5 + 6 + 8);
  message.cell(1, 3, 1).u8(200);
  message.cell(4095, 4, 2).u16(0xFF00);
  message.cell(5, 2, 4).text(std::string_view("abc\0", 4));
  message.record(2, 25 + 4);
  message.cell(6, 1, 21).text("twenty-one bytes long");
  message.cell(4094, 0, 0);
  message.record(3, 0);
  return message;
}

void fill(CTLVRecordV3& first, CTLVRecordV3& second) {
  first.addUnsigned(1, 200).addSigned(4095, -256).addString(5, "abc");
  second.addOctets(6, "twenty-one bytes long", 21).add(CTLVCell());
}

TEST(Package, EncodesAV3MessageByteByByteAsOnTheWire) {
  CT7QPackageV3 package;
  CTLVRecordV3& first = package.addRecord(0x0102030405060708);
  fill(first, package.addRecord(2));
  package.addRecord(3);
  EXPECT_EQ(encoded(package), writtenOut(false).data());
  EXPECT_EQ(package.head().len_, writtenOut(false).size() - 28);
}

TEST(Package, EncodesAnInternalMessageByteByByteAsOnTheWire) {
  CQOV_MsgPackage package;
  package.head().type_ = 1;
  package.head().sn_ = 7;
  package.head().opc_ = 0x1122334455667788;
  CTLVRecordV3& first = package.addRecord(0x0102030405060708);
  fill(first, package.addRecord(2));
  package.append(new CTLVRecordV3(3));
  EXPECT_EQ(encoded(package), writtenOut(true).data());
}

TEST(Package, DecodesWhatIsWrittenOut) {
  Bytes message = writtenOut(true);
  CQOV_MsgPackage package;
  EXPECT_EQ(package.decode(message.begin(), message.size()), message.size() - 32);
  EXPECT_EQ(package.head().sn_, 7U);
  EXPECT_EQ(package.head().opc_, 0x1122334455667788U);
  ASSERT_EQ(package.count(), 3U);
  EXPECT_EQ(package[0].cmd(), 0x0102030405060708U);
  EXPECT_EQ(package[0].getUnsigned(1), 200U);
  EXPECT_EQ(package[0].getSigned(4095), -256);
  EXPECT_EQ(package[0].getString(5), "abc");
  EXPECT_EQ(package[1].getOctets(6), "twenty-one bytes long");
  EXPECT_EQ(package[2].cmd(), 3U);
  EXPECT_EQ(package[2].count(), 0U);
  EXPECT_EQ(encoded(package), message.data());
}

TEST(Package, IgnoresBytesBehindTheMessage) {
  Bytes message = writtenOut(false);
  const unsigned int size = message.size();
  message.fill(9, 0xEE);
  CT7QPackageV3 package;
  EXPECT_EQ(package.decode(message.begin(), message.size()), size - 28);
  EXPECT_EQ(package.count(), 3U);
}

TEST(Package, GivesAnEmptyCellTag4094AndNoTypeWhenItDecodes) {
  Bytes message;
  message.headV3(10 + 4).record(1, 4).cell(7, 2, 0);
  CT7QPackageV3 package;
  ASSERT_EQ(package.decode(message.begin(), message.size()), 14U);
  EXPECT_EQ(package[0].find(7), nullptr);
  ASSERT_NE(package[0].find(4094), nullptr);
  EXPECT_EQ(package[0][4094].type(), CTLVCell::TLV_INVALID);
}

TEST(Package, ReadsNoBytesOfTheNextCell) {
  for (unsigned int length = 1; length <= 24; ++length) {
    Bytes message;
    message.head(10 + 3 * (4 + length) + 23).record(1, 3 * (4 + length) + 23);
    message.cell(1, 3, length).fill(length, 0x81).cell(2, 2, length).fill(length, 'x');
    message.cell(3, 8, length).fill(length, '1').cell(4, 1, 19).fill(19, '2');
    CQOV_MsgPackage package;
    ASSERT_NE(package.decode(message.begin(), message.size()), package.kFailed);
    const std::uint64_t all = 0x8181818181818181;
    EXPECT_EQ(package[0].getUnsigned(1), length < 8 ? all >> (8 - length) * 8 : all) << length;
    EXPECT_EQ(package[0].getString(2), std::string(length, 'x'));
    EXPECT_EQ(package[0][3].toString(), std::string(length, '1'));
  }
}

TEST(Package, AppendsWhatItDecodesToTheRecordsItHas) {
  Bytes message = writtenOut(false);
  CT7QPackageV3 package;
  package.addRecord(99).addUnsigned(1, 1);
  package.decode(message.begin(), message.size());
  package.decode(message.begin(), message.size());
  ASSERT_EQ(package.count(), 7U);
  EXPECT_EQ(package[0].cmd(), 99U);
  EXPECT_EQ(package[6].cmd(), 3U);
}

TEST(Package, CarriesValuesOfEveryLengthWithinTheBytesGiven) {
  for (unsigned long length = 1; length <= 64; ++length) {
    const std::string value(length, static_cast<char>(length));
    CQOV_MsgPackage package;
    package.head().type_ = 1;
    package.addRecord(1).addOctets(1, value.data(), length).addOctets(2, value.data(), length);
    const auto size = static_cast<unsigned int>(32 + 10 + 2 * (4 + length));
    FencedMemory memory(size);
    ASSERT_EQ(package.encode(memory.begin(), size), size);
    CQOV_MsgPackage got;
    ASSERT_EQ(got.decode(memory.begin(), size), size - 32);
    EXPECT_EQ(got[0].getOctets(1), value);
    EXPECT_EQ(got[0].getOctets(2), value);
  }
}

TEST(Package, WritesNothingBehindTheMessage) {
  CQOV_MsgPackage package;
  package.addRecord(1).addUnsigned(1, 5).addString(2, "text");
  std::vector<unsigned char> buffer(200, 0xEE);
  const unsigned int size = package.encode(buffer.data(), 200);
  ASSERT_EQ(size, 32U + 10 + 5 + 9);
  for (std::size_t i = size; i < buffer.size(); ++i) {
    ASSERT_EQ(buffer[i], 0xEE) << i;
  }
}

TEST(Package, CarriesLargeRecordsAndManyOfThem) {
  CQOV_MsgPackage package;
  package.head().type_ = 1;
  for (unsigned int r = 0; r < 300; ++r) {
    CTLVRecordV3& record = package.addRecord(r);
    for (unsigned int i = 0; i < r; ++i) {
      record.addUnsigned(static_cast<unsigned short>(i), r * i);
    }
  }
  std::vector<unsigned char> bytes = encoded(package);
  CQOV_MsgPackage got;
  ASSERT_NE(got.decode(bytes.data(), static_cast<unsigned int>(bytes.size())), got.kFailed);
  ASSERT_EQ(got.count(), 300U);
  for (unsigned int r = 0; r < 300; ++r) {
    ASSERT_EQ(got[r].count(), r);
    for (unsigned int i = 0; i < r; ++i) {
      ASSERT_EQ(got[r].getUnsigned(static_cast<unsigned short>(i)), r * i);
    }
  }
}

TEST(Package, LetsEarlierRecordsGrowWhileLaterOnesAreThere) {
  CQOV_MsgPackage package;
  CTLVRecordV3& first = package.addRecord(1);
  CTLVRecordV3& second = package.addRecord(2);
  for (unsigned short tag = 0; tag < 100; ++tag) {
    first.addUnsigned(tag, tag);
    second.addString(tag, "a text of more than nineteen bytes");
  }
  EXPECT_EQ(first.count(), 100U);
  EXPECT_EQ(first.getUnsigned(99), 99U);
  EXPECT_EQ(second.getString(99), "a text of more than nineteen bytes");
  first.clear();
  first.addUnsigned(7, 7);
  EXPECT_EQ(package[0].getUnsigned(7), 7U);
}

TEST(Package, LetsItsNewestRecordBeClearedAfterLookUps) {
  CQOV_MsgPackage package;
  CTLVRecordV3& record = package.addRecord(1);
  const CTLVRecordV3& same = record;
  for (int round = 0; round < 2; ++round) {
    for (unsigned short tag = 0; tag < 200; ++tag) {
      record.addUnsigned(tag, tag);
    }
    EXPECT_EQ(same.getUnsigned(199), 199U);
    record.clear();
    EXPECT_EQ(same.find(199), nullptr);
  }
  package.addRecord(2).addUnsigned(1, 1);
  EXPECT_EQ(package[1].getUnsigned(1), 1U);
}

TEST(Package, ThrowsForARecordThatIsNotThere) {
  CQOV_MsgPackage package;
  package.addRecord(1);
  const CQOV_MsgPackage& same = package;
  EXPECT_EQ(same[0].cmd(), 1U);
  EXPECT_THROW(same[1], CQOV_Exception);
  try {
    package[5];
    FAIL() << "found";
  } catch (const CQOV_Exception& e) {
    EXPECT_STREQ(e.what(), "CQOV_Exception: record don't exist, index is 5");
  }
}

TEST(Package, TakesTheGivenRecordItself) {
  CQOV_MsgPackage package;
  auto* record = new CTLVRecordV3(4);
  package.append(nullptr);
  package.append(record);
  EXPECT_EQ(&package[0], record);
  EXPECT_EQ(package.count(), 1U);
}

TEST(Package, RefusesARecordThatIsPartOfAPackage) {
  CQOV_MsgPackage package;
  CQOV_MsgPackage other;
  EXPECT_THROW(other.append(&package.addRecord(1)), CQOV_Exception);
  EXPECT_EQ(other.count(), 0U);
}

TEST(Package, RefusesARecordThatAPackageHasTakenOver) {
  CQOV_MsgPackage package;
  package.append(new CTLVRecordV3(4));
  CQOV_MsgPackage other;
  EXPECT_THROW(other.append(&package[0]), CQOV_Exception);
  EXPECT_THROW(package.append(&package[0]), CQOV_Exception);
  EXPECT_EQ(other.count(), 0U);
  EXPECT_EQ(package.count(), 1U);
}

TEST(Package, TakesTheCopyOfARecordThatAPackageHas) {
  CQOV_MsgPackage package;
  package.addRecord(5).addUnsigned(1, 1);
  package.append(new CTLVRecordV3(package[0]));
  package.append(new CTLVRecordV3(package[1]));
  EXPECT_EQ(package[2].getUnsigned(1), 1U);
}

TEST(Package, KeepsItsHeaderWhenItIsCleared) {
  CQOV_MsgPackage package;
  package.head().opc_ = 5;
  package.addRecord(1).addUnsigned(1, 1);
  package.append(new CTLVRecordV3(2));
  package.clear();
  EXPECT_EQ(package.count(), 0U);
  EXPECT_EQ(package.head().opc_, 5U);
  package.addRecord(3).addUnsigned(1, 1);
  EXPECT_EQ(package[0].cmd(), 3U);
}

TEST(Package, CopiesDeeply) {
  CQOV_MsgPackage package;
  package.addRecord(1).addString(1, std::string(100, 'x'));
  package.append(new CTLVRecordV3(2));
  CQOV_MsgPackage copy(package);
  package[0][1].setString(1, "changed");
  EXPECT_EQ(copy.head().sn_, package.head().sn_);
  ASSERT_EQ(copy.count(), 2U);
  EXPECT_EQ(copy[0].getString(1), std::string(100, 'x'));
  CQOV_MsgPackage assigned;
  assigned.addRecord(9);
  assigned = copy;
  const CQOV_MsgPackage& same = assigned;
  assigned = same;
  ASSERT_EQ(assigned.count(), 2U);
  EXPECT_EQ(assigned[0].getString(1), std::string(100, 'x'));
}

TEST(Package, RefusesANullBufferAndSaysSo) {
  CT7QPackageV3 package;
  const LogCapture log;
  EXPECT_EQ(package.encode(nullptr, 100), CT7QPackageV3::kFailed);
  EXPECT_NE(log.text().find("buf pointer is null!\n"), std::string::npos);
}

TEST(Package, RefusesABufferThatIsOneByteShortAndSaysSo) {
  CT7QPackageV3 package;
  package.addRecord(1).addUnsigned(1, 5);
  std::vector<unsigned char> buffer(43, 0xEE);
  const LogCapture log;
  EXPECT_EQ(package.encode(buffer.data(), 42), CT7QPackageV3::kFailed);
  EXPECT_NE(log.text().find("buf size is less than data size! buf size=42, data size=43!\n"),
            std::string::npos);
  EXPECT_EQ(buffer, std::vector<unsigned char>(43, 0xEE));
  EXPECT_EQ(package.head().len_, 0U);
  EXPECT_EQ(package.encode(buffer.data(), 43), 43U);
}

TEST(Package, EncodesARecordOf65535BytesAndNoLonger) {
  CT7QPackageV3 package;
  const std::string value(65531, 'x');
  package.addRecord(1).addOctets(1, value.data(), value.size());
  std::vector<unsigned char> bytes = encoded(package);
  CT7QPackageV3 got;
  ASSERT_EQ(got.decode(bytes.data(), static_cast<unsigned int>(bytes.size())), 65545U);
  EXPECT_EQ(got[0].getOctets(1), value);

  package[0].append(new CTLVCell());
  const LogCapture log;
  unsigned char* none = bytes.data();
  EXPECT_EQ(package.encode(none), CT7QPackageV3::kFailed);
  EXPECT_EQ(none, nullptr);
  std::vector<unsigned char> buffer(100000);
  EXPECT_EQ(package.encode(buffer.data(), 100000), CT7QPackageV3::kFailed);
  EXPECT_EQ(log.lines(), 2);
}

TEST(Package, ParsesOneRecordForTheCaller) {
  Bytes bytes;
  bytes.record(77, 5 + 24).cell(1, 3, 1).u8(9).cell(2, 1, 20).fill(20, 'x');
  bytes.record(78, 0);
  CT7QPackageV3 package;
  CTLVRecordV3* record = nullptr;
  EXPECT_EQ(package.getRecord(bytes.begin(), bytes.size(), record), 39U);
  const std::unique_ptr<CTLVRecordV3> own(record);
  ASSERT_NE(own, nullptr);
  EXPECT_EQ(own->cmd(), 77U);
  EXPECT_EQ(own->getUnsigned(1), 9U);
  EXPECT_EQ(own->length(), 29U);
  EXPECT_EQ(package.count(), 0U);
}

}  // namespace
