#include <gtest/gtest.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_msg.h>

#include <limits>
#include <string>
#include <vector>

namespace {

std::string bytesOf(const CTLVCell& cell) {
  return {reinterpret_cast<const char*>(cell.value()), cell.length()};
}

template <class Call>
std::string thrownBy(const Call& call) {
  try {
    call();
  } catch (const CQOV_Exception& e) {
    return e.what();
  }
  return "nothing";
}

CTLVCell cellOf(CTLVCell::ETLVType type, const std::vector<unsigned char>& bytes) {
  return CTLVCell(type, 9, bytes.data(), bytes.size());
}

TEST(Cell, IsSmall) {
  EXPECT_EQ(sizeof(CTLVCell), 24U);
}

TEST(Cell, StartsEmptyWithTag4094AndNoType) {
  const CTLVCell cell;
  EXPECT_EQ(cell.tag(), 4094);
  EXPECT_EQ(cell.type(), CTLVCell::TLV_INVALID);
  EXPECT_EQ(cell.length(), 0);
}

TEST(Cell, PacksTagAndTypeIntoSixteenBits) {
  const CTLVCell cell(CTLVCell::TLV_UINT, 0xABC, "\x01", 1);
  EXPECT_EQ(cell.typeTag(), 0xABC3);
  EXPECT_EQ(cell.tag(), 0xABC);
  EXPECT_EQ(cell.type(), CTLVCell::TLV_UINT);
}

TEST(Cell, TakesTag4095) {
  CTLVCell cell;
  cell.set_i(CTLVCell::TLV_OCTET, 4095, "x", 1);
  EXPECT_EQ(cell.tag(), 4095);
}

TEST(Cell, RefusesTag4096AndStaysAsItWas) {
  CTLVCell cell(CTLVCell::TLV_OCTET, 7, "abc", 3);
  const std::string text = "CQOV_Exception: tag is big than MAX_TAG_VALUE, tag is 4096";
  EXPECT_EQ(thrownBy([&] { cell.set_i(CTLVCell::TLV_OCTET, 4096, "x", 1); }), text);
  EXPECT_EQ(thrownBy([&] { cell.setUnsigned(4096, 1); }), text);
  EXPECT_EQ(thrownBy([&] { cell.setString(4096, "x"); }), text);
  EXPECT_EQ(cell.tag(), 7);
  EXPECT_EQ(bytesOf(cell), "abc");
}

TEST(Cell, KeepsValuesOfEveryLengthAroundItsInside) {
  for (unsigned long length = 0; length <= 70; ++length) {
    std::string value(length, '\0');
    for (unsigned long i = 0; i < length; ++i) {
      value[i] = static_cast<char>('A' + i);
    }
    const CTLVCell cell(CTLVCell::TLV_OCTET, 1, value.data(), length);
    EXPECT_EQ(bytesOf(cell), value);
    EXPECT_EQ(bytesOf(CTLVCell(cell)), value);
  }
}

TEST(Cell, TakesAValueOf65535Bytes) {
  const std::string value(65535, 'v');
  CTLVCell cell;
  cell.setOctets(1, value.data(), value.size());
  EXPECT_EQ(bytesOf(cell), value);
  cell.setString(1, std::string(65534, 's'));
  EXPECT_EQ(cell.length(), 65535);
}

TEST(Cell, RefusesAValueAbove65535BytesAndStaysAsItWas) {
  const std::string value(65536, 'v');
  CTLVCell cell(CTLVCell::TLV_OCTET, 7, "abc", 3);
  EXPECT_THROW(cell.set_i(CTLVCell::TLV_OCTET, 1, value.data(), value.size()), CQOV_Exception);
  EXPECT_THROW(cell.setCell(0x11, value.data(), value.size()), CQOV_Exception);
  EXPECT_THROW(cell.setOctets(1, value.data(), value.size()), CQOV_Exception);
  EXPECT_THROW(cell.setString(1, std::string(65535, 's')), CQOV_Exception);
  EXPECT_EQ(cell.tag(), 7);
  EXPECT_EQ(bytesOf(cell), "abc");
}

TEST(Cell, SetsTypeAndTagOfAnEmptyValueWithSetI) {
  CTLVCell cell(CTLVCell::TLV_OCTET, 7, "abc", 3);
  cell.set_i(CTLVCell::TLV_STRING, 8, nullptr, 3);
  EXPECT_EQ(cell.typeTag(), 8 << 4 | 2);
  EXPECT_EQ(cell.length(), 0);
  cell.set_i(CTLVCell::TLV_OCTET, 9, "abc", 0);
  EXPECT_EQ(cell.typeTag(), 9 << 4 | 1);
  EXPECT_EQ(cell.length(), 0);
}

TEST(Cell, LeavesTypeAndTagOfAnEmptyValueWithSetCell) {
  CTLVCell cell(CTLVCell::TLV_OCTET, 7, "abc", 3);
  cell.setCell(8 << 4 | 2, "", 0);
  EXPECT_EQ(cell.typeTag(), 7 << 4 | 1);
  EXPECT_EQ(cell.length(), 0);
  cell.setCell(8 << 4 | 2, nullptr, 4);
  EXPECT_EQ(cell.typeTag(), 7 << 4 | 1);
}

TEST(Cell, TakesAnyPackedTypeAndTagWithSetCell) {
  CTLVCell cell;
  cell.setCell(0xFFFF, "z", 1);
  EXPECT_EQ(cell.tag(), 4095);
  EXPECT_EQ(cell.typeTag() & 0xF, 15);
}

TEST(Cell, SurvivesDataFromItsOwnValue) {
  for (const std::size_t length : {6U, 16U, 19U, 20U, 60U}) {
    const std::string value = std::string("0123456789").append(length - 5, 'x').substr(0, length);
    for (std::size_t from = 0; from < length; ++from) {
      CTLVCell cell(CTLVCell::TLV_OCTET, 1, value.data(), length);
      cell.set_i(CTLVCell::TLV_OCTET, 1, cell.value() + from, length - from);
      EXPECT_EQ(bytesOf(cell), value.substr(from));
    }
  }
}

TEST(Cell, SurvivesAssignmentToItself) {
  CTLVCell cell(CTLVCell::TLV_OCTET, 1, std::string(100, 'q').data(), 100);
  const CTLVCell& same = cell;
  cell = same;
  EXPECT_EQ(bytesOf(cell), std::string(100, 'q'));
}

TEST(Cell, CopiesItsValue) {
  CTLVCell cell(CTLVCell::TLV_OCTET, 1, std::string(100, 'q').data(), 100);
  CTLVCell copy(cell);
  EXPECT_TRUE(copy == cell);
  EXPECT_NE(copy.value(), cell.value());
  cell.setOctets(1, "other", 5);
  EXPECT_EQ(bytesOf(copy), std::string(100, 'q'));
}

TEST(Cell, MovesItsValue) {
  CTLVCell cell(CTLVCell::TLV_OCTET, 1, std::string(100, 'q').data(), 100);
  CTLVCell moved(std::move(cell));
  EXPECT_EQ(bytesOf(moved), std::string(100, 'q'));
  moved = CTLVCell(CTLVCell::TLV_UINT, 2, "\x05", 1);
  EXPECT_EQ(moved.getUnsigned(), 5U);
}

TEST(Cell, SurvivesMovingToItself) {
  CTLVCell cell(CTLVCell::TLV_OCTET, 1, std::string(100, 'q').data(), 100);
  CTLVCell& same = cell;
  cell = std::move(same);
  EXPECT_EQ(bytesOf(cell), std::string(100, 'q'));
}

TEST(Cell, IsEmptyAfterItsValueWasMovedAway) {
  CTLVCell cell(CTLVCell::TLV_STRING, 7, std::string(100, 'q').data(), 100);
  const CTLVCell moved(std::move(cell));
  EXPECT_EQ(cell.tag(), 7);
  EXPECT_EQ(cell.getString(), "");
  EXPECT_EQ(cell.number(), 0U);
}

TEST(Cell, EqualsACellOfTheSameTypeTagAndBytesOnly) {
  const CTLVCell cell(CTLVCell::TLV_OCTET, 1, "ab", 2);
  EXPECT_TRUE(cell == CTLVCell(CTLVCell::TLV_OCTET, 1, "ab", 2));
  EXPECT_TRUE(cell != CTLVCell(CTLVCell::TLV_STRING, 1, "ab", 2));
  EXPECT_TRUE(cell != CTLVCell(CTLVCell::TLV_OCTET, 2, "ab", 2));
  EXPECT_TRUE(cell != CTLVCell(CTLVCell::TLV_OCTET, 1, "abc", 3));
  EXPECT_TRUE(cell != CTLVCell(CTLVCell::TLV_OCTET, 1, "ax", 2));
}

TEST(Cell, ReadsNumbersOfEveryWidth) {
  const std::vector<unsigned char> ones(9, 0xFF);
  auto read = [&](CTLVCell::ETLVType type, std::size_t width) {
    return cellOf(type, {ones.begin(), ones.begin() + static_cast<long>(width)}).number();
  };
  const std::uint64_t minusOne = ~0ULL;
  EXPECT_EQ(read(CTLVCell::TLV_UINT, 0), 0U);
  EXPECT_EQ(read(CTLVCell::TLV_UINT, 1), 0xFFU);
  EXPECT_EQ(read(CTLVCell::TLV_UINT, 2), 0xFFFFU);
  EXPECT_EQ(read(CTLVCell::TLV_UINT, 3), 0xFFFFFFU);
  EXPECT_EQ(read(CTLVCell::TLV_UINT, 4), 0xFFFFFFFFU);
  EXPECT_EQ(read(CTLVCell::TLV_UINT, 5), 0xFFFFFFFFFFU);
  EXPECT_EQ(read(CTLVCell::TLV_UINT, 8), minusOne);
  EXPECT_EQ(read(CTLVCell::TLV_UINT, 9), minusOne);
  EXPECT_EQ(read(CTLVCell::TLV_INT, 0), 0U);
  EXPECT_EQ(read(CTLVCell::TLV_INT, 1), minusOne);
  EXPECT_EQ(read(CTLVCell::TLV_INT, 2), minusOne);
  EXPECT_EQ(read(CTLVCell::TLV_INT, 4), minusOne);
  EXPECT_EQ(read(CTLVCell::TLV_INT, 8), minusOne);
}

TEST(Cell, ExtendsNoSignOfAnIntOfThreeOrFiveToSevenBytes) {
  EXPECT_EQ(cellOf(CTLVCell::TLV_INT, {0xFF, 0xFF, 0xFF}).number(), 0xFFFFFFU);
  EXPECT_EQ(cellOf(CTLVCell::TLV_INT, {1, 2, 3, 4, 0x85}).number(), 0x8504030201U);
  EXPECT_EQ(cellOf(CTLVCell::TLV_INT, {1, 2, 3, 4, 5, 6, 0x87}).number(), 0x87060504030201U);
}

TEST(Cell, ReadsTheFirstEightBytesOfALongNumber) {
  const std::vector<unsigned char> bytes{1,    0, 0, 0, 0, 0, 0, 2, 0xEE, 0xEE, 0xEE,
                                         0xEE, 0, 0, 0, 0, 0, 0, 0, 0,    0,    0};
  EXPECT_EQ(cellOf(CTLVCell::TLV_UINT, bytes).number(), 0x0200000000000001U);
  EXPECT_EQ(cellOf(CTLVCell::TLV_UINT, {bytes.begin(), bytes.begin() + 12}).number(),
            0x0200000000000001U);
}

TEST(Cell, ForgetsALongValueWhenItGetsAShortNumber) {
  CTLVCell cell(CTLVCell::TLV_OCTET, 1, "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", 9);
  cell.set_i(CTLVCell::TLV_UINT, 1, "\x07\x00\x01", 3);
  EXPECT_EQ(cell.number(), 0x010007U);
}

TEST(Cell, GivesUnsignedNumbersTheFewestOfOneTwoFourAndEightBytes) {
  auto width = [](std::uint64_t v) {
    CTLVCell cell;
    cell.setUnsigned(1, v);
    EXPECT_EQ(cell.getUnsigned(), v);
    return cell.length();
  };
  EXPECT_EQ(width(0), 1);
  EXPECT_EQ(width(0xFF), 1);
  EXPECT_EQ(width(0x100), 2);
  EXPECT_EQ(width(0xFFFF), 2);
  EXPECT_EQ(width(0x10000), 4);
  EXPECT_EQ(width(0xFFFFFFFF), 4);
  EXPECT_EQ(width(0x100000000), 8);
  EXPECT_EQ(width(~0ULL), 8);
}

TEST(Cell, GivesSignedNumbersTheFewestBytesThatKeepTheSign) {
  auto width = [](std::int64_t v) {
    CTLVCell cell;
    cell.setSigned(1, v);
    EXPECT_EQ(cell.getSigned(), v);
    return cell.length();
  };
  EXPECT_EQ(width(0), 1);
  EXPECT_EQ(width(127), 1);
  EXPECT_EQ(width(128), 2);
  EXPECT_EQ(width(-128), 1);
  EXPECT_EQ(width(-129), 2);
  EXPECT_EQ(width(32767), 2);
  EXPECT_EQ(width(32768), 4);
  EXPECT_EQ(width(-32769), 4);
  EXPECT_EQ(width(2147483648), 8);
  EXPECT_EQ(width(-2147483649), 8);
  EXPECT_EQ(width(std::numeric_limits<std::int64_t>::min()), 8);
  EXPECT_EQ(width(std::numeric_limits<std::int64_t>::max()), 8);
}

TEST(Cell, ReadsBoolEnumAndTimeAsUnsigned) {
  CTLVCell cell;
  cell.setBool(1, true);
  EXPECT_TRUE(cell.getBool());
  EXPECT_EQ(cell.getUnsigned(), 1U);
  cell.setEnum(1, 300);
  EXPECT_EQ(cell.getUnsigned(), 300U);
  cell.setTime(1, 1700000000);
  EXPECT_EQ(cell.type(), CTLVCell::TLV_TIME);
  EXPECT_EQ(cell.getUnsigned(), 1700000000U);
}

TEST(Cell, StoresTextWithItsNul) {
  CTLVCell cell;
  cell.setString(1, "abc");
  EXPECT_EQ(bytesOf(cell), std::string("abc\0", 4));
  cell.setString(1, "");
  EXPECT_EQ(bytesOf(cell), std::string(1, '\0'));
}

TEST(Cell, ReadsTextOfEveryLengthUpToItsNulOrItsEnd) {
  for (std::size_t length = 1; length <= 40; ++length) {
    const std::string text(length, 't');
    EXPECT_EQ(CTLVCell(CTLVCell::TLV_STRING, 1, text.data(), length).getString(), text);
    for (std::size_t nul = 0; nul < length; ++nul) {
      std::string cut = text;
      cut[nul] = '\0';
      EXPECT_EQ(CTLVCell(CTLVCell::TLV_STRING, 1, cut.data(), length).getString().size(), nul);
    }
  }
}

TEST(Cell, ReadsNoBytesOfAnEarlierLongerText) {
  CTLVCell cell(CTLVCell::TLV_STRING, 1, "0123456789012345678", 19);
  cell.set_i(CTLVCell::TLV_STRING, 1, "abcdefghij", 10);
  EXPECT_EQ(cell.getString(), "abcdefghij");
}

TEST(Cell, RefusesToReadAnotherType) {
  CTLVCell number;
  number.setUnsigned(5, 1);
  CTLVCell text;
  text.setString(6, "x");
  EXPECT_THROW(number.getSigned(), CQOV_Exception);
  EXPECT_THROW(number.getBool(), CQOV_Exception);
  EXPECT_THROW(number.getString(), CQOV_Exception);
  EXPECT_THROW(number.getOctets(), CQOV_Exception);
  EXPECT_THROW(text.getOctets(), CQOV_Exception);
  EXPECT_EQ(thrownBy([&] { text.getUnsigned(); }),
            "CQOV_Exception: CTLVCell isn't unsigned type! tag equal to 6, type is String");
  CTLVCell unknown;
  unknown.setCell(0x1F, "x", 1);
  EXPECT_THROW(unknown.getUnsigned(), CQOV_Exception);
}

TEST(Cell, CallsEveryTypeAboveStringNumerical) {
  for (unsigned int type = 0; type <= 15; ++type) {
    CTLVCell cell;
    cell.setCell(static_cast<unsigned short>(77 << 4 | type), "x", 1);
    const std::string expected =
        type > 2 ? "nothing" : "CQOV_Exception: CTLVCell isn't numerical type! tag equal to 77";
    EXPECT_EQ(thrownBy([&] { cell.checkNumerical(); }), expected) << type;
  }
}

TEST(Cell, SaysUnsignedValuesOfUintOnlyAndAllOthersSigned) {
  const std::vector<unsigned char> ones(8, 0xFF);
  EXPECT_EQ(cellOf(CTLVCell::TLV_UINT, ones).toString(), "18446744073709551615");
  for (const auto type : {CTLVCell::TLV_INT, CTLVCell::TLV_BOOL, CTLVCell::TLV_ENUM,
                          CTLVCell::TLV_TIME, static_cast<CTLVCell::ETLVType>(12)}) {
    EXPECT_EQ(cellOf(type, ones).toString(), "-1") << type;
  }
}

TEST(Cell, SaysOctetsWholeAndTextUpToItsNul) {
  EXPECT_EQ(cellOf(CTLVCell::TLV_OCTET, {'a', 0, 'b'}).toString(), std::string("a\0b", 3));
  EXPECT_EQ(cellOf(CTLVCell::TLV_STRING, {'a', 0, 'b'}).toString(), "a");
  EXPECT_EQ(cellOf(CTLVCell::TLV_STRING, {'a', 'b'}).toString(), "ab");
  EXPECT_EQ(cellOf(CTLVCell::TLV_STRING, {}).toString(), "");
  EXPECT_EQ(cellOf(CTLVCell::TLV_INVALID, {'a'}).toString(), "");
}

}  // namespace
