#include "tests/tools/endpoint_fixture.h"

namespace qov::test {
namespace {

class EndpointAnswers : public EndpointTest {
 protected:
  /// The records of the answer to a request with these, or the result when it is not 0.
  std::string answerTo(const std::string& records) const {
    return asker.exchange(message(9, records));
  }

  EndpointClient asker = clientOfStarted({"--quiet"});
};

constexpr std::uint32_t kUnknownOperation = 1;
constexpr std::uint32_t kUnknownTable = 2;
constexpr std::uint32_t kNoSuchRow = 3;
constexpr std::uint32_t kBadRequest = 4;
constexpr std::uint32_t kReadOnly = 5;
constexpr std::uint32_t kTableFull = 6;

TEST_F(EndpointAnswers, WalkATableInTheOrderOfItsKeys) {
  EXPECT_EQ(answerTo(record(kGetNextOf + kThings)), message(9, firstRow()));
  EXPECT_EQ(answerTo(firstRow()), message(9, lastRow()));
  EXPECT_EQ(answerTo(lastRow()), message(9, endOf(kThings)));
}

TEST_F(EndpointAnswers, GoOnBehindAKeyThatIsNoRow) {
  EXPECT_EQ(answerTo(record(kGetNextOf + kThings, cursor(3))), message(9, lastRow()));
  EXPECT_EQ(answerTo(record(kGetNextOf + kThings, cursor(301, 8))), message(9, endOf(kThings)));
}

TEST_F(EndpointAnswers, EndATableWithoutRowsAtOnce) {
  EXPECT_EQ(answerTo(record(kGetNextOf + kNothing)), message(9, endOf(kNothing)));
  EXPECT_EQ(answerTo(record(kGetNextOf + 0x2000)), message(9, endOf(0x2000)));
}

TEST_F(EndpointAnswers, GetTheRowOfAKey) {
  const std::string row = text(1, "last") + cursor(300, 2) + status(0);
  EXPECT_EQ(answerTo(record(kGetOf + kThings, cursor(300, 4))),
            message(9, record(kGetOf + kThings, row)));
  EXPECT_EQ(answerTo(record(kGetOf + kThings, cursor(3))), message(9, "", kNoSuchRow));
  EXPECT_EQ(answerTo(record(kGetOf + kThings)), message(9, "", kNoSuchRow));
}

TEST_F(EndpointAnswers, RefuseWhatTheyDoNotKnow) {
  EXPECT_EQ(answerTo(record(5ULL << 32 | kThings)), message(9, "", kUnknownOperation));
  EXPECT_EQ(answerTo(record(kThings)), message(9, "", kUnknownOperation));
  EXPECT_EQ(answerTo(record(kGetNextOf + 9)), message(9, "", kUnknownTable));
  EXPECT_EQ(answerTo(record(kGetOf + 9)), message(9, "", kUnknownTable));
  EXPECT_EQ(answerTo(record(kStoreTo + 9)), message(9, "", kUnknownTable));
  EXPECT_EQ(answerTo(record(kCountsOf + 1)), message(9, "", kUnknownTable));
}

TEST_F(EndpointAnswers, RefuseABadRequestAndGoOn) {
  EXPECT_EQ(answerTo(""), message(9, "", kBadRequest));
  EXPECT_EQ(answerTo("123456789"), message(9, "", kBadRequest));
  EXPECT_EQ(answerTo(record(kGetNextOf + kThings, "1")), message(9, "", kBadRequest));
  const std::string one = record(kGetNextOf + kThings);
  EXPECT_EQ(answerTo(one + one), message(9, "", kBadRequest));
  EXPECT_EQ(answerTo(record(kGetNextOf + kThings, text(4093, "2"))), message(9, "", kBadRequest));
  EXPECT_EQ(answerTo(record(kGetOf + kThings, text(4093, "2"))), message(9, "", kBadRequest));
  EXPECT_EQ(answerTo(one), message(9, firstRow()));
}

TEST_F(EndpointAnswers, StoreRecordsBehindTheLastRowAndReadThemBack) {
  const std::uint64_t cmd = kStoreTo + kKept;
  EXPECT_EQ(answerTo(record(cmd, text(1, "a")) + record(cmd, text(1, "b"))),
            message(9, record(cmd, number(1, 3))));
  EXPECT_EQ(answerTo(record(kGetOf + kKept, cursor(12))),
            message(9, record(kGetOf + kKept, text(1, "b") + cursor(12) + status(0))));
}

TEST_F(EndpointAnswers, CountTheKeysOfAnEmptyTableFromOne) {
  const std::uint64_t cmd = kStoreTo + 0xFFFFFFFF;
  EXPECT_EQ(answerTo(record(cmd, number(4, 1))), message(9, record(cmd, number(1, 1))));
  EXPECT_EQ(answerTo(record(kGetNextOf + 0xFFFFFFFF)),
            message(9, record(kGetNextOf + 0xFFFFFFFF, number(4, 1) + cursor(1) + status(0))));
}

TEST_F(EndpointAnswers, LeaveTheCursorAndTheStatusOfAStoredRecordOut) {
  const std::string sent = record(kStoreTo + 0x2000, text(1, "a") + cursor(99) + status(7));
  answerTo(sent);
  EXPECT_EQ(answerTo(record(kGetOf + 0x2000, cursor(1))),
            message(9, record(kGetOf + 0x2000, text(1, "a") + cursor(1) + status(0))));
}

TEST_F(EndpointAnswers, StoreNothingThatCannotBeRead) {
  EXPECT_EQ(answerTo(record(kStoreTo + kThings, text(1, "a"))), message(9, "", kReadOnly));
  const std::string mixed =
      record(kStoreTo + 0x2000, text(1, "a")) + record(kStoreTo + 0x2001, text(1, "a"));
  EXPECT_EQ(answerTo(mixed), message(9, "", kBadRequest));
  EXPECT_EQ(answerTo(record(kGetNextOf + 0x2000)), message(9, endOf(0x2000)));
}

TEST_F(EndpointAnswers, StoreTheLongestRowThatStillHasRoomForItsCursor) {
  // A cursor and a status of 8 bytes, each with a head of 4.
  const std::size_t longest = 65535 - 24 - 4;
  const auto stored = [&](std::size_t size) {
    return record(kStoreTo + 0x2000, cell(1, 1, std::string(size, 'x')));
  };
  EXPECT_EQ(answerTo(stored(longest + 1)), message(9, "", kBadRequest));
  EXPECT_EQ(answerTo(stored(longest)), message(9, record(kStoreTo + 0x2000, number(1, 1))));
  EXPECT_EQ(answerTo(record(kGetNextOf + 0x2000)),
            message(9, record(kGetNextOf + 0x2000,
                              cell(1, 1, std::string(longest, 'x')) + cursor(1) + status(0))));
}

TEST_F(EndpointAnswers, StoreAllRecordsOfARequestThatFillsTheTablesOrNone) {
  // One row is there from the file, and two in table 7.
  const std::string one = record(kStoreTo + 0x2000);
  std::string batch;
  for (int i = 0; i < 10000; ++i) {
    batch += one;
  }
  for (int i = 0; i < 4; ++i) {
    ASSERT_EQ(answerTo(batch).size(), message(9, record(0, number(1, 1, 2))).size());
  }
  EXPECT_EQ(answerTo(batch), message(9, "", kTableFull));
  const std::string rest = batch.substr(0, batch.size() - 3 * one.size());
  EXPECT_EQ(answerTo(rest), message(9, record(kStoreTo + 0x2000, number(1, 49997, 2))));
  EXPECT_EQ(answerTo(one), message(9, "", kTableFull));
}

TEST_F(EndpointAnswers, EchoTheHeadButForResultAndLength) {
  std::string asked = request(0xABCD);
  asked.replace(8, 4, le(77, 4));
  EXPECT_EQ(asker.exchange(asked), answer(0xABCD));
}

TEST_F(EndpointAnswers, TellTheCounts) {
  answerTo(record(kGetNextOf + kThings));
  answerTo(lastRow());
  answerTo(record(kGetOf + kThings, cursor(2)));
  answerTo(record(kStoreTo + kKept) + record(kStoreTo + kKept));
  answerTo("");
  EXPECT_EQ(answerTo(record(kCountsOf)),
            message(9, record(kCountsOf, number(1, 1) + number(2, 6) + number(3, 5) + number(4, 2) +
                                             number(5, 1) + number(6, 2) + number(7, 1))));
  EXPECT_EQ(counted(), "connections 1 requests 6 replies 6 rows 2 ends 1 stored 2 refusals 1");
}

}  // namespace
}  // namespace qov::test
