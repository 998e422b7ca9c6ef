#include <gtest/gtest.h>
#include <qovpub/qov_message_package.h>

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
using qov::tests::kFunction;
using qov::tests::kFunctionV3;
using qov::tests::kNoHead;
using qov::tests::kPlace;
using qov::tests::Lines;
using qov::tests::linesOf;

constexpr unsigned int kFailed = CT7QPackageV3::kFailed;

/// Decodes at the end of accessible memory into a package that already holds a record.
template <class Package>
class Decoding {
 public:
  explicit Decoding(const std::vector<unsigned char>& bytes) {
    package.addRecord(99).addString(1, "a text of more than nineteen bytes");
    FencedMemory memory(bytes);
    const LogCapture log;
    result = package.decode(memory.begin(), static_cast<unsigned int>(bytes.size()));
    lines = linesOf(log.text());
    text = log.text();
  }

  Package package;
  unsigned int result;
  Lines lines;
  std::string text;
};

using DecodingV3 = Decoding<CT7QPackageV3>;
using DecodingInternal = Decoding<CQOV_MsgPackage>;

/// What is logged when the first record, which starts at 28, is bad with that text.
Lines recordFault(const std::string& text, unsigned int size, unsigned int pos = 28) {
  return {kPlace + kFunctionV3 + text,
          kPlace + kFunctionV3 + " : it failed to parse record, buf size=" + std::to_string(size) +
              ", parsing pos=" + std::to_string(pos)};
}

TEST(PackageFault, LogsAtErrorLevel) {
  const DecodingV3 decoding({});
  EXPECT_NE(decoding.text.find("LM_ERROR"), std::string::npos);
}

TEST(PackageFault, RefusesBytesTooFewForAHeader) {
  Bytes v3;
  v3.headV3(0).data().pop_back();
  const DecodingV3 decoding(v3.data());
  EXPECT_EQ(decoding.result, kFailed);
  EXPECT_EQ(decoding.lines, kNoHead);
  Bytes internal;
  internal.head(0).data().pop_back();
  EXPECT_EQ(DecodingInternal(internal.data()).lines, kNoHead);
  EXPECT_EQ(CT7QPackageV3().decode(nullptr, 100), kFailed);
}

TEST(PackageFault, RefusesAnotherMagicOrVersion) {
  Bytes v3;
  v3.headV3(0);
  EXPECT_EQ(DecodingV3(Bytes(v3).set(0, 0x54).data()).lines, kBadHead);
  EXPECT_EQ(DecodingV3(Bytes(v3).set(4, 2).data()).lines, kBadHead);
  EXPECT_EQ(DecodingV3(v3.data()).result, 0U);
  Bytes internal;
  internal.head(0);
  EXPECT_EQ(DecodingInternal(Bytes(internal).set(1, 0).data()).lines, kBadHead);
  EXPECT_EQ(DecodingInternal(Bytes(internal).set(4, 2).data()).lines, kBadHead);
  EXPECT_EQ(DecodingInternal(internal.data()).result, 0U);
}

TEST(PackageFault, TakesTheTypesOneToFourOnly) {
  for (unsigned int type = 0; type <= 6; ++type) {
    Bytes internal;
    internal.head(0, type);
    EXPECT_EQ(DecodingInternal(internal.data()).result == 0, type >= 1 && type <= 4) << type;
  }
}

TEST(PackageFault, RefusesALengthBeyondTheBytesGiven) {
  for (const std::uint64_t len :
       {11ULL, 100ULL, 0x7FFFFFFFULL, 0xFFFFFFE3ULL, 0xFFFFFFE4ULL, 0xFFFFFFF0ULL, 0xFFFFFFFFULL}) {
    Bytes v3;
    v3.headV3(len).record(1, 0);
    EXPECT_EQ(DecodingV3(v3.data()).lines, kBadHead) << len;
    Bytes internal;
    internal.head(len).record(1, 0);
    EXPECT_EQ(DecodingInternal(internal.data()).lines, kBadHead) << len;
  }
}

TEST(PackageFault, LeavesThePackageAsItWasWhenTheHeaderIsBad) {
  Bytes message;
  message.headV3(0xFFFFFFFF);
  const DecodingV3 decoding(message.data());
  EXPECT_EQ(decoding.package.count(), 1U);
  EXPECT_EQ(decoding.package.head().len_, 0U);
}

TEST(PackageFault, RefusesNineBytesWhereARecordShouldBe) {
  Bytes message;
  message.headV3(9).fill(9, 0);
  const DecodingV3 decoding(message.data());
  EXPECT_EQ(decoding.result, kFailed);
  EXPECT_EQ(decoding.lines,
            Lines{kPlace + kFunctionV3 +
                  ": MIN_RECORD_SIZE(10) > uiRemainLen, buf size=37, parsing pos=28"});
}

TEST(PackageFault, NamesTheInternalHeaderInItsText) {
  Bytes message;
  message.head(10 + 3).record(1, 0).fill(3, 0);
  EXPECT_EQ(DecodingInternal(message.data()).lines,
            Lines{kPlace + kFunction +
                  ": MIN_RECORD_SIZE(10) > uiRemainLen, buf size=45, parsing pos=42"});
}

TEST(PackageFault, RefusesARecordLongerThanTheMessage) {
  Bytes message;
  message.headV3(15).record(1, 6).cell(1, 3, 1).u8(1);
  EXPECT_EQ(DecodingV3(message.data()).lines,
            recordFault(" : record length is too long, (usRecordLen +  MIN_RECORD_SIZE) > "
                        "uiBufSize ->6+10 < 15",
                        43));
}

TEST(PackageFault, RefusesACellHeadThatIsNotThere) {
  Bytes message;
  message.headV3(12).record(1, 2).u16(0x13);
  EXPECT_EQ(DecodingV3(message.data()).lines,
            recordFault(" : (MIN_TLV_SIZE > uiBufSize - pos) ->4 < uiBufSize - 10", 40));
  Bytes second;
  second.headV3(18).record(1, 8).cell(1, 3, 1).u8(1).fill(3, 0);
  EXPECT_EQ(DecodingV3(second.data()).lines,
            recordFault(" : (MIN_TLV_SIZE > uiBufSize - pos) ->4 < uiBufSize - 15", 46));
}

TEST(PackageFault, RefusesACellHeadThatRunsIntoTheNextRecord) {
  Bytes message;
  message.headV3(10 + 2 + 10).record(1, 2).u16(0x13).record(2, 0);
  EXPECT_EQ(DecodingV3(message.data()).lines,
            recordFault(" : data length is too long, ((sDataLen + pos) > usRecordLen + "
                        "MIN_RECORD_SIZE) ->2+14 > 2+10",
                        50));
}

TEST(PackageFault, RefusesATypeAboveNine) {
  for (unsigned int type = 0; type <= 15; ++type) {
    Bytes message;
    message.headV3(15).record(1, 5).cell(1, type, 1).u8(1);
    const DecodingV3 decoding(message.data());
    if (type <= 9) {
      EXPECT_EQ(decoding.result, 15U) << type;
    } else {
      EXPECT_EQ(decoding.lines,
                recordFault(" : data type unmated, received type is " + std::to_string(type), 43));
    }
  }
}

TEST(PackageFault, SpeaksOfTheTypeWhenTheLengthIsBadToo) {
  Bytes message;
  message.headV3(15).record(1, 5).cell(1, 11, 2).u8(1);
  EXPECT_EQ(DecodingV3(message.data()).lines,
            recordFault(" : data type unmated, received type is 11", 43));
}

TEST(PackageFault, RefusesACellLongerThanItsRecord) {
  Bytes message;
  message.headV3(15).record(1, 5).cell(1, 3, 2).u8(1);
  EXPECT_EQ(DecodingV3(message.data()).lines,
            recordFault(" : data length is too long, ((sDataLen + pos) > usRecordLen + "
                        "MIN_RECORD_SIZE) ->2+14 > 5+10",
                        43));
}

TEST(PackageFault, RefusesACellThatRunsIntoTheNextRecord) {
  Bytes message;
  message.headV3(15 + 10).record(1, 5).cell(1, 3, 2).u8(1).record(2, 0);
  EXPECT_EQ(DecodingV3(message.data()).result, kFailed);
}

TEST(PackageFault, ClearsEarlierRecordsTooAndKeepsTheHeader) {
  Bytes message;
  message.headV3(10 + 30 + 10 + 5);
  message.record(1, 30).cell(1, 2, 26).fill(26, 'x');
  message.record(2, 5).cell(1, 10, 1).u8(1);
  const DecodingV3 decoding(message.data());
  EXPECT_EQ(decoding.lines,
            recordFault(" : data type unmated, received type is 10", message.size(), 68));
  EXPECT_EQ(decoding.package.count(), 0U);
  EXPECT_EQ(decoding.package.head().len_, 0U);
}

/// A package that notes when it is cleared.
class Noting : public CT7QPackageV3 {
 public:
  void clear() override {
    ++cleared;
    CT7QPackageV3::clear();
  }
  int cleared = 0;
};

TEST(PackageFault, ClearsThroughThePackagesOwnOperation) {
  Bytes message;
  message.headV3(9).fill(9, 0);
  const LogCapture log;
  Noting package;
  EXPECT_EQ(package.decode(message.begin(), message.size()), kFailed);
  EXPECT_EQ(package.cleared, 1);
}

TEST(PackageFault, ReadsNothingBehindABrokenOffMessage) {
  Bytes whole;
  whole.headV3(0).record(1, 5 + 24 + 21).cell(1, 3, 1).u8(1);
  whole.cell(2, 2, 20).fill(20, 'x').cell(3, 1, 17).fill(17, 'y').record(2, 0);
  for (unsigned int size = 28; size <= whole.size(); ++size) {
    Bytes cut(whole);
    cut.data().resize(size);
    cut.set(24, static_cast<unsigned char>(size - 28));
    const unsigned int result = DecodingV3(cut.data()).result;
    EXPECT_EQ(result != kFailed, size == 28 || size == 28 + 60 || size == whole.size()) << size;
  }
}

/// Whether getRecord() takes these bytes, at the end of accessible memory.
bool getsRecord(const Bytes& bytes) {
  FencedMemory memory(bytes.data());
  CT7QPackageV3 package;
  CTLVRecordV3 before;
  CTLVRecordV3* record = &before;
  const unsigned int taken = package.getRecord(memory.begin(), bytes.size(), record);
  const std::unique_ptr<CTLVRecordV3> own(record);
  EXPECT_EQ(taken, record == nullptr ? 0 : bytes.size());
  return record != nullptr;
}

TEST(PackageFault, ReadsNothingBehindWhatGetRecordMayRead) {
  Bytes whole;
  whole.record(1, 5 + 24).cell(1, 3, 1).u8(1).cell(2, 2, 20).fill(20, 'x');
  const LogCapture log;
  for (unsigned int size = 0; size < whole.size(); ++size) {
    Bytes cut(whole);
    cut.data().resize(size);
    EXPECT_FALSE(getsRecord(cut)) << size;
    if (size >= 10) {
      cut.set(8, static_cast<unsigned char>(size - 10));
      EXPECT_EQ(getsRecord(cut), size == 10 || size == 15) << size;
    }
  }
  EXPECT_TRUE(getsRecord(whole));
}

TEST(PackageFault, RefusesToParseARecordFromNowhere) {
  const LogCapture log;
  CTLVRecordV3 before;
  CTLVRecordV3* record = &before;
  EXPECT_EQ(CT7QPackageV3().getRecord(nullptr, 100, record), 0U);
  EXPECT_EQ(record, nullptr);
  EXPECT_EQ(log.lines(), 1);
}

}  // namespace
