#include <gtest/gtest.h>
#include <json/value.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_message_package.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

CTLVCell* newCell(unsigned short tag, std::uint64_t v) {
  auto cell = std::make_unique<CTLVCell>();
  cell->setUnsigned(tag, v);
  return cell.release();
}

std::vector<unsigned int> tagsOf(const CTLVRecordV3& record) {
  std::vector<unsigned int> tags;
  for (const CTLVCell& cell : record) {
    tags.push_back(cell.tag());
  }
  return tags;
}

using Tags = std::vector<unsigned int>;

TEST(Record, StartsEmpty) {
  const CTLVRecordV3 record(77);
  EXPECT_EQ(record.cmd(), 77U);
  EXPECT_EQ(record.count(), 0U);
  EXPECT_EQ(record.length(), 0U);
  EXPECT_TRUE(record.begin() == record.end());
}

TEST(Record, TakesTheGivenCellItself) {
  CTLVRecordV3 record;
  CTLVCell* cell = newCell(5, 1);
  record.append(cell);
  EXPECT_EQ(&record[5], cell);
  EXPECT_EQ(&*record.begin(), cell);
}

TEST(Record, IgnoresANullCell) {
  CTLVRecordV3 record;
  record.append(nullptr);
  record.append_int(nullptr);
  EXPECT_EQ(record.count(), 0U);
}

TEST(Record, RefusesACellThatARecordOwns) {
  CTLVRecordV3 record;
  record.append(newCell(5, 1));
  record.addUnsigned(6, 2);
  CTLVRecordV3 other;
  EXPECT_THROW(other.append(&record[5]), CQOV_Exception);
  EXPECT_THROW(other.append(&record[6]), CQOV_Exception);
  EXPECT_EQ(other.count(), 0U);
}

TEST(Record, KeepsTheOrderInWhichCellsWereAppendedAnyWay) {
  CTLVRecordV3 record;
  record.addUnsigned(9, 1);
  record.append(newCell(3, 2));
  record.addString(7, "x");
  record.append(newCell(9, 4));
  record.addUnsigned(1, 5);
  EXPECT_EQ(tagsOf(record), (Tags{9, 3, 7, 9, 1}));
  EXPECT_EQ(record.count(), 5U);
}

TEST(Record, FindsTheFirstOfSeveralCellsWithATag) {
  CTLVRecordV3 record;
  record.addUnsigned(9, 1).addUnsigned(9, 2);
  record.append(newCell(9, 3));
  EXPECT_EQ(record.getUnsigned(9), 1U);
}

TEST(Record, ThrowsForAMissingTag) {
  CTLVRecordV3 record;
  record.addUnsigned(9, 1);
  const CTLVRecordV3& same = record;
  for (const auto& look : {+[](CTLVRecordV3& r) { return r[10].length(); }}) {
    try {
      look(record);
      FAIL() << "found";
    } catch (const CQOV_Exception& e) {
      EXPECT_STREQ(e.what(), "CQOV_Exception: tag don't exist, tag is 10");
    }
  }
  EXPECT_THROW(same[10], CQOV_Exception);
  EXPECT_THROW(record.getUnsigned(10), CQOV_Exception);
  EXPECT_EQ(record.find(10), nullptr);
  EXPECT_EQ(same.find(4096), nullptr);
}

TEST(Record, ReadsValuesByTagAndType) {
  CTLVRecordV3 record;
  Json::Value json;
  json["k"] = 1;
  record.addUnsigned(1, 10).addSigned(2, -10).addBool(3, true).addString(4, "text");
  record.addOctets(5, "\x00\x01", 2).addJson(6, json).addEnum(7, 3).addTime(8, 99);
  const CTLVRecordV3& same = record;
  EXPECT_EQ(same.getUnsigned(1), 10U);
  EXPECT_EQ(same.getSigned(2), -10);
  EXPECT_TRUE(same.getBool(3));
  EXPECT_EQ(same.getString(4), "text");
  EXPECT_EQ(same.getOctets(5), std::string_view("\x00\x01", 2));
  EXPECT_EQ(same.getJson(6), json);
  EXPECT_EQ(same.getUnsigned(7), 3U);
  EXPECT_EQ(same.getUnsigned(8), 99U);
  EXPECT_THROW(same.getSigned(1), CQOV_Exception);
}

TEST(Record, SumsUpItsCells) {
  CTLVRecordV3 record;
  record.addUnsigned(1, 1).addString(2, "abc");
  EXPECT_EQ(record.length(), (4 + 1) + (4 + 4U));
  record.append(newCell(3, 70000));
  EXPECT_EQ(record.length(), (4 + 1) + (4 + 4) + (4 + 4U));
}

TEST(Record, KnowsItsLengthAfterACellWasChangedFromOutside) {
  CTLVRecordV3 record;
  record.addUnsigned(1, 1);
  CTLVCell* own = newCell(2, 1);
  record.append(own);
  record[1].setString(1, "long enough to leave the cell");
  own->setOctets(2, "abc", 3);
  EXPECT_EQ(record.length(), (4 + 30) + (4 + 3U));
}

TEST(Record, GoesByWhatBecomesOfACellThatItWasGiven) {
  CTLVRecordV3 record;
  CTLVCell* own = newCell(2, 1);
  record.append(own);
  own->setString(3, "a text of more than nineteen bytes");
  EXPECT_EQ(record.length(), 4 + 35U);
  EXPECT_EQ(record.find(2), nullptr);
  EXPECT_EQ(record.getString(3), "a text of more than nineteen bytes");
}

TEST(Record, FindsACellUnderTheTagItHasNow) {
  for (const unsigned int cells : {3U, 200U}) {
    CTLVRecordV3 record;
    for (unsigned short tag = 0; tag < cells; ++tag) {
      record.addUnsigned(tag, tag);
    }
    record[1].setUnsigned(3000, 1);
    EXPECT_EQ(record.find(1), nullptr) << cells;
    ASSERT_NE(record.find(3000), nullptr) << cells;
    EXPECT_EQ(record.getUnsigned(3000), 1U);
  }
}

TEST(Record, FindsWhatIsAddedToALargeRecordAfterALookUp) {
  CTLVRecordV3 record;
  for (unsigned short tag = 0; tag < 200; ++tag) {
    record.addUnsigned(tag, tag);
  }
  const CTLVRecordV3& same = record;
  EXPECT_EQ(same.find(1000), nullptr);
  for (unsigned short tag = 1000; tag < 1100; ++tag) {
    record.addUnsigned(tag, tag);
  }
  record.addString(2000, "text").addString(2001, "a text of more than nineteen bytes");
  record.addOctets(2002, "x", 1).addJson(2003, Json::Value(7));
  record.add(CTLVCell(CTLVCell::TLV_UINT, 2004, "\x09", 1));
  for (unsigned short tag = 1000; tag < 1100; ++tag) {
    ASSERT_EQ(same.getUnsigned(tag), tag);
  }
  EXPECT_EQ(same.getString(2000), "text");
  EXPECT_EQ(same.getString(2001), "a text of more than nineteen bytes");
  EXPECT_EQ(same.getOctets(2002), "x");
  EXPECT_EQ(same.getJson(2003), Json::Value(7));
  EXPECT_EQ(same.getUnsigned(2004), 9U);
  EXPECT_EQ(same.find(2005), nullptr);
  EXPECT_EQ(same.find(4096), nullptr);
}

TEST(Record, FindsTheFirstOfSeveralCellsWithATagInALargeRecord) {
  CTLVRecordV3 record;
  for (unsigned int i = 0; i < 200; ++i) {
    record.addUnsigned(static_cast<unsigned short>(i % 100), i);
  }
  const CTLVRecordV3& same = record;
  EXPECT_EQ(same.getUnsigned(60), 60U);
  record.addUnsigned(60, 500);
  EXPECT_EQ(same.getUnsigned(60), 60U);
  EXPECT_EQ(same.getUnsigned(99), 99U);
}

TEST(Record, FindsEveryCellOfALargeRecord) {
  CTLVRecordV3 record;
  for (unsigned int tag = 0; tag <= MAX_TAG_VALUE; tag += 2) {
    record.addUnsigned(static_cast<unsigned short>(tag), tag);
  }
  const CTLVRecordV3& same = record;
  EXPECT_EQ(same.find(1), nullptr);
  for (unsigned int tag = 1; tag <= MAX_TAG_VALUE; tag += 2) {
    record.append(newCell(static_cast<unsigned short>(tag), tag));
  }
  for (unsigned int tag = 0; tag <= MAX_TAG_VALUE; ++tag) {
    ASSERT_EQ(same.getUnsigned(static_cast<unsigned short>(tag)), tag);
  }
  EXPECT_EQ(same.find(4096), nullptr);
  EXPECT_EQ(record.count(), 4096U);
}

/// Lets a number of threads go on together.
class Gate {
 public:
  explicit Gate(int threads) : missing_(threads) {}
  void pass() {
    --missing_;
    while (missing_ > 0) {
      std::this_thread::yield();
    }
  }

 private:
  std::atomic<int> missing_;
};

TEST(Record, IsReadBySeveralThreadsAtOnce) {
  constexpr int kThreads = 4;
  for (int round = 0; round < 20; ++round) {
    CTLVRecordV3 record;
    for (unsigned short tag = 0; tag < 500; ++tag) {
      record.addUnsigned(tag, tag);
    }
    const CTLVRecordV3& same = record;
    Gate gate(kThreads);
    std::vector<std::thread> readers;
    std::vector<std::uint64_t> sums(kThreads);
    for (std::uint64_t& sum : sums) {
      readers.emplace_back([&same, &sum, &gate] {
        gate.pass();
        for (unsigned short tag = 0; tag < 500; ++tag) {
          sum += same.getUnsigned(tag);
        }
        sum += same.length() - 500 * 5 - 244;
      });
    }
    for (std::thread& reader : readers) {
      reader.join();
    }
    ASSERT_EQ(sums, std::vector<std::uint64_t>(kThreads, 499 * 500 / 2));
  }
}

TEST(Record, NeverMovesItsCells) {
  CTLVRecordV3 record;
  record.addString(0, "first");
  const CTLVCell* first = record.find(0);
  const std::string_view text = record.getString(0);
  for (unsigned short tag = 1; tag < 1000; ++tag) {
    record.addUnsigned(tag, tag);
  }
  EXPECT_EQ(record.find(0), first);
  EXPECT_EQ(text, "first");
}

TEST(Record, CopiesDeeply) {
  CTLVRecordV3 record(5);
  record.addUnsigned(1, 1).addString(2, std::string(100, 'x'));
  record.append(newCell(3, 3));
  CTLVRecordV3 copy(record);
  record[2].setString(2, "changed");
  EXPECT_EQ(copy.cmd(), 5U);
  EXPECT_EQ(tagsOf(copy), (Tags{1, 2, 3}));
  EXPECT_EQ(copy.getString(2), std::string(100, 'x'));
  EXPECT_NE(&copy[3], &record[3]);
}

TEST(Record, ReplacesItsCellsWhenItIsAssignedTo) {
  CTLVRecordV3 record(5);
  record.addUnsigned(1, 1);
  CTLVRecordV3 other(6);
  other.addString(2, std::string(50, 'y')).addUnsigned(3, 3);
  record = other;
  EXPECT_EQ(record.cmd(), 6U);
  EXPECT_EQ(tagsOf(record), (Tags{2, 3}));
  const CTLVRecordV3& same = record;
  record = same;
  EXPECT_EQ(record.getString(2), std::string(50, 'y'));
  record.clone(CTLVRecordV3(9));
  EXPECT_EQ(record.count(), 0U);
  EXPECT_EQ(record.cmd(), 9U);
}

TEST(Record, CanBeFilledAgainAfterClear) {
  CTLVRecordV3 record(5);
  for (unsigned short tag = 0; tag < 200; ++tag) {
    record.addString(tag, "a text of more than nineteen bytes");
  }
  EXPECT_NE(record.find(199), nullptr);
  record.clear();
  EXPECT_EQ(record.cmd(), 5U);
  EXPECT_EQ(record.count(), 0U);
  EXPECT_EQ(record.length(), 0U);
  EXPECT_EQ(record.find(199), nullptr);
  record.addUnsigned(8, 8);
  EXPECT_EQ(tagsOf(record), (Tags{8}));
}

TEST(Record, FindsNothingFromBeforeClearWhenItIsLargeAgain) {
  CTLVRecordV3 record;
  const CTLVRecordV3& same = record;
  auto fill = [&record](unsigned short from) {
    for (unsigned short tag = from; tag < from + 200; ++tag) {
      record.addUnsigned(tag, tag);
    }
  };
  fill(0);
  EXPECT_EQ(same.getUnsigned(7), 7U);
  record.clear();
  fill(100);
  EXPECT_EQ(same.find(7), nullptr);
  EXPECT_EQ(same.getUnsigned(299), 299U);
  record = CTLVRecordV3(1);
  EXPECT_EQ(same.find(299), nullptr);
}

TEST(Record, TakesCellsUpTo65535BytesAndNoMore) {
  CTLVRecordV3 record;
  const std::string most(65535 - 4 - 5, 'x');
  record.addOctets(1, most.data(), most.size()).addUnsigned(2, 1);
  EXPECT_EQ(record.length(), 65535U);
  EXPECT_THROW(record.addUnsigned(3, 1), CQOV_Exception);
  EXPECT_THROW(record.addString(3, ""), CQOV_Exception);
  EXPECT_THROW(record.addOctets(3, nullptr, 0), CQOV_Exception);
  EXPECT_THROW(record.add(CTLVCell()), CQOV_Exception);
  EXPECT_EQ(record.count(), 2U);
  EXPECT_EQ(record.length(), 65535U);
}

TEST(Record, GoesByTheLengthItHasNowWhenItRefusesACell) {
  CTLVRecordV3 record;
  const std::string most(65000, 'x');
  record.addOctets(1, most.data(), most.size());
  record[1].setUnsigned(1, 1);
  record.addOctets(2, most.data(), most.size());
  EXPECT_EQ(record.count(), 2U);
}

TEST(Record, GoesByTheLengthItHasNowWhenItTakesACell) {
  const std::string most(65535 - 4 - 6 * 5, 'x');
  for (const bool throughIteration : {false, true}) {
    CTLVRecordV3 record;
    record.addUnsigned(1, 1);
    CTLVCell& cell = throughIteration ? *record.begin() : record[1];
    cell.setOctets(1, most.data(), most.size());
    for (unsigned short tag = 2; tag < 8; ++tag) {
      record.addUnsigned(tag, 1);
    }
    EXPECT_EQ(record.length(), 65535U);
    EXPECT_THROW(record.addUnsigned(9, 1), CQOV_Exception);
    EXPECT_THROW(record.addString(9, ""), CQOV_Exception);
    EXPECT_THROW(record.addString(9, "a text of more than nineteen bytes"), CQOV_Exception);
    EXPECT_THROW(record.add(CTLVCell()), CQOV_Exception);
    EXPECT_EQ(record.count(), 7U);
  }
}

TEST(Record, IsUnchangedWhenACellIsRefused) {
  CTLVRecordV3 record;
  record.addUnsigned(1, 1);
  EXPECT_THROW(record.addUnsigned(4096, 1), CQOV_Exception);
  EXPECT_THROW(record.addString(4096, "a text of more than nineteen bytes"), CQOV_Exception);
  EXPECT_THROW(record.addOctets(2, "x", 65536), CQOV_Exception);
  EXPECT_THROW(record.addJson(4096, Json::Value(1)), CQOV_Exception);
  EXPECT_EQ(tagsOf(record), (Tags{1}));
}

TEST(Record, IteratesOverWhatItAllowsToChange) {
  CTLVRecordV3 record;
  record.addUnsigned(1, 1).addUnsigned(2, 2);
  for (CTLVCell& cell : record) {
    cell.setUnsigned(cell.tag(), 300);
  }
  EXPECT_EQ(record.length(), 2 * (4 + 2U));
  EXPECT_EQ(record.getUnsigned(2), 300U);
}

}  // namespace
