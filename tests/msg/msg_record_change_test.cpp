// Records whose cells are changed through references, at any time, by anyone who has one.
#include <gtest/gtest.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_message_package.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr unsigned short kTags = 60;

std::unique_ptr<CTLVCell> newCell(unsigned short tag, std::uint64_t v) {
  auto cell = std::make_unique<CTLVCell>();
  cell->setUnsigned(tag, v);
  return cell;
}

/// What a record is compared with: a list of its cells that nobody has an index of.
class Naive {
 public:
  void add(CTLVCell cell) { cells_.push_back(std::move(cell)); }
  std::size_t size() const { return cells_.size(); }
  CTLVCell& operator[](std::size_t i) { return cells_[i]; }
  void erase(std::size_t i) { cells_.erase(cells_.begin() + static_cast<std::ptrdiff_t>(i)); }

  std::size_t first(unsigned short tag, std::size_t from = 0) const {
    while (from < cells_.size() && cells_[from].tag() != tag) {
      ++from;
    }
    return from;
  }
  unsigned long length() const {
    unsigned long sum = 0;
    for (const CTLVCell& cell : cells_) {
      sum += 4U + cell.length();
    }
    return sum;
  }

 private:
  std::vector<CTLVCell> cells_;
};

/// A record, references to its cells from all times, and the naive list; all hold the same.
class Model {
 public:
  explicit Model(unsigned int seed) : random_(seed) {
    if (below(2) != 0) {
      record_ = &package_.addRecord(1);
    }
  }

  void step() {
    switch (below(12)) {
      case 0:
      case 1:
        return add();
      case 2:
        return append();
      case 3:
        return change(*cells_[some()]);
      case 4:
        return change((*record_)[naive_[some()].tag()]);
      case 5:
        return erase();
      case 6:
        return replace();
      case 7:
        return swapTwo();
      case 8:
        return move();
      default:
        return look(*record_);
    }
  }

  void start(unsigned int cells) {
    while (naive_.size() < cells) {
      add();
    }
  }

  void check() {
    ASSERT_EQ(record_->count(), naive_.size());
    ASSERT_EQ(record_->length(), naive_.length());
    std::size_t i = 0;
    for (const CTLVCell& cell : static_cast<const CTLVRecordV3&>(*record_)) {
      ASSERT_EQ(cell, naive_[i]);
      ASSERT_EQ(&cell, cells_[i]);
      ++i;
    }
    const CTLVRecordV3 copy(*record_);
    look(*record_);
    look(copy);
  }

 private:
  std::size_t below(std::size_t n) { return random_() % n; }
  std::size_t some() { return below(naive_.size()); }
  unsigned short tag() { return static_cast<unsigned short>(below(kTags)); }

  CTLVCell value() {
    CTLVCell cell;
    const std::string text(below(30), 't');
    if (below(2) != 0) {
      cell.setUnsigned(tag(), random_());
    } else {
      cell.setString(tag(), text);
    }
    return cell;
  }

  /// Gets references to all cells.
  void refer() {
    cells_.clear();
    for (CTLVCell& cell : *record_) {
      cells_.push_back(&cell);
    }
  }

  void add() {
    const CTLVCell cell = value();
    record_->add(cell);
    naive_.add(cell);
    refer();
  }

  void append() {
    auto cell = std::make_unique<CTLVCell>(value());
    naive_.add(*cell);
    cells_.push_back(cell.get());
    record_->append(cell.release());
  }

  void change(CTLVCell& cell) {
    const auto at =
        static_cast<std::size_t>(std::find(cells_.begin(), cells_.end(), &cell) - cells_.begin());
    ASSERT_LT(at, cells_.size());
    const CTLVCell to = value();
    const unsigned short same = cell.tag();
    switch (below(5)) {
      case 0:
        cell = to;
        naive_[at] = to;
        break;
      case 1:
        cell = CTLVCell(to);
        naive_[at] = to;
        break;
      case 2:
        cell.set_i(to.type(), to.tag(), to.value(), to.length());
        naive_[at] = to;
        break;
      case 3:
        cell.setUnsigned(same, random_() % 70000);
        naive_[at] = cell;
        break;
      default:
        cell.setCell(to.typeTag(), reinterpret_cast<const char*>(to.value()), to.length());
        naive_[at] = to;
    }
  }

  void erase() {
    const std::size_t at = some();
    auto cell = record_->begin();
    std::advance(cell, at);
    cell = record_->erase(cell);
    naive_.erase(at);
    ASSERT_EQ(cell == record_->end(), at == naive_.size());
    refer();
  }

  void replace() {
    const CTLVCell cell = value();
    const std::size_t at = naive_.first(cell.tag());
    ASSERT_EQ(record_->replace(cell), at < naive_.size());
    if (at < naive_.size()) {
      naive_[at] = cell;
    }
  }

  void swapTwo() {
    const std::size_t one = some();
    const std::size_t other = some();
    std::swap(*cells_[one], *cells_[other]);
    std::swap(naive_[one], naive_[other]);
  }

  void move() {
    CTLVRecordV3 moved(std::move(*record_));
    look(moved);
    *record_ = std::move(moved);
    refer();
  }

  void look(const CTLVRecordV3& record) {
    const unsigned short wanted = tag();
    const std::size_t at = naive_.first(wanted);
    const CTLVCell* found = record.find(wanted);
    ASSERT_EQ(found != nullptr, at < naive_.size());
    if (found == nullptr) {
      return;
    }
    ASSERT_EQ(*found, naive_[at]);
    ASSERT_TRUE(&record != record_ || found == cells_[at]);
    const std::size_t further = naive_.first(wanted, at + 1);
    const CTLVCell* next = record.findNext(*found);
    ASSERT_EQ(next != nullptr, further < naive_.size());
    ASSERT_TRUE(next == nullptr || *next == naive_[further]);
  }

  std::mt19937 random_;
  CQOV_MsgPackage package_;
  CTLVRecordV3 own_;
  CTLVRecordV3* record_ = &own_;
  Naive naive_;
  std::vector<CTLVCell*> cells_;
};

TEST(RecordChange, AnswersAsANaiveListWouldWhateverIsChanged) {
  for (unsigned int seed = 0; seed < 200; ++seed) {
    Model model(seed);
    model.start(seed % 3 == 0 ? 300 : 20 + seed % 100);
    for (int i = 0; i < 200; ++i) {
      model.step();
      if (i % 10 == 0) {
        model.check();
      }
      ASSERT_FALSE(testing::Test::HasFatalFailure()) << "seed " << seed << ", step " << i;
    }
  }
}

/// A record with the tags 0 to `cells` - 1, each with itself as its value.
CTLVRecordV3 numbered(unsigned short cells) {
  CTLVRecordV3 record;
  for (unsigned short tag = 0; tag < cells; ++tag) {
    record.addUnsigned(tag, tag);
  }
  return record;
}

TEST(RecordChange, LetsACellBeFoundBeforeAnotherWhoseTagItTakes) {
  for (const unsigned short cells : std::vector<unsigned short>{3, 63, 64, 65, 66, 200}) {
    CTLVRecordV3 record = numbered(cells);
    const auto last = static_cast<unsigned short>(cells - 1);
    ASSERT_EQ(record.getUnsigned(last), last);
    record[1].set_i(CTLVCell::TLV_UINT, last, "\x07", 1);
    EXPECT_EQ(record.getUnsigned(last), 7U) << cells;
    EXPECT_EQ(record[last], CTLVRecordV3(record)[last]) << cells;
  }
}

TEST(RecordChange, IsSeenThroughAReferenceFromBeforeAllLookUps) {
  CTLVRecordV3 record = numbered(200);
  CTLVCell& early = *record.begin();
  CTLVCell* middle = record.find(100);
  EXPECT_EQ(record.getUnsigned(150), 150U);
  early.setUnsigned(150, 1);
  EXPECT_EQ(record.getUnsigned(150), 1U);
  middle->setUnsigned(0, 2);
  EXPECT_EQ(record.getUnsigned(0), 2U);
  EXPECT_EQ(record.find(100), nullptr);
}

TEST(RecordChange, IsSeenInACellThatWasGiven) {
  CTLVRecordV3 record = numbered(200);
  CTLVCell* given = newCell(300, 1).release();
  record.append(given);
  EXPECT_EQ(record.getUnsigned(300), 1U);
  given->setUnsigned(301, 70000);
  EXPECT_EQ(record.find(300), nullptr);
  EXPECT_EQ(record.getUnsigned(301), 70000U);
  EXPECT_EQ(record.length(), CTLVRecordV3(record).length());
  record.addUnsigned(302, 1);
  EXPECT_EQ(record.length(), CTLVRecordV3(record).length());
  EXPECT_EQ(record.getUnsigned(302), 1U);
}

TEST(RecordChange, IsSeenInARecordOfADecodedPackage) {
  CT7QPackageV3 sent;
  sent.addRecord(1) = numbered(200);
  unsigned char* bytes = nullptr;
  const unsigned int size = sent.encode(bytes);
  const std::unique_ptr<unsigned char[]> own(bytes);
  CT7QPackageV3 package;
  ASSERT_NE(package.decode(bytes, size), CT7QPackageV3::kFailed);
  CTLVRecordV3& record = package[0];
  EXPECT_EQ(record.getUnsigned(50), 50U);
  record[2].setString(50, "a text of more than nineteen bytes");
  EXPECT_EQ(record[50].type(), CTLVCell::TLV_STRING);
  EXPECT_EQ(record.length(), 200 * 5 - 1 + 35U);
  unsigned char* again = nullptr;
  const unsigned int grown = package.encode(again);
  const std::unique_ptr<unsigned char[]> ownToo(again);
  EXPECT_EQ(grown, size - 1 + 35);
}

TEST(RecordChange, FreesWhatAChangedCellHolds) {
  CQOV_MsgPackage package;
  CTLVRecordV3& record = package.addRecord(1);
  record.addUnsigned(1, 1).addUnsigned(2, 2);
  for (CTLVCell& cell : record) {
    cell.setString(3, std::string(100, 'x'));
  }
  EXPECT_EQ(record.length(), 2 * 105U);
}

/// From each kind of cell, into the same record or another.
TEST(RecordChange, IsSeenInACellThatIsMovedIntoARecord) {
  const std::string longText = "a text of more than nineteen bytes";
  for (const bool same : {false, true}) {
    CQOV_MsgPackage package;
    CTLVRecordV3& record = package.addRecord(1);
    record.addString(0, longText).addString(1, "short").addUnsigned(2, 70000);
    record.append(newCell(3, 80000).release());
    CTLVRecordV3 other(2);
    CTLVRecordV3& to = same ? record : other;
    for (unsigned short tag = 0; tag < 4; ++tag) {
      const CTLVCell cell(record[tag]);
      to.add(std::move(record[tag]));
      EXPECT_EQ(record[tag].length(), 0U);
      EXPECT_EQ(*std::next(to.begin(), same ? 4 + tag : tag), cell);
      EXPECT_EQ(record.length(), CTLVRecordV3(record).length());
      EXPECT_EQ(to.length(), CTLVRecordV3(to).length());
    }
  }
}

TEST(RecordErase, TakesOneCellOut) {
  CTLVRecordV3 record = numbered(100);
  auto at = record.begin();
  std::advance(at, 50);
  at = record.erase(at);
  EXPECT_EQ(at->tag(), 51);
  EXPECT_EQ(record.find(50), nullptr);
  EXPECT_EQ(record.count(), 99U);
  EXPECT_EQ(record.length(), 99 * 5U);
  record.addUnsigned(50, 50);
  EXPECT_EQ(record.getUnsigned(50), 50U);
}

TEST(RecordErase, LetsTheCellsThatMoveBeChangedAfterwards) {
  CTLVRecordV3 record = numbered(10);
  record.erase(record.begin());
  record[5].setUnsigned(20, 70000);
  EXPECT_EQ(record.getUnsigned(20), 70000U);
  EXPECT_EQ(record.length(), 8 * 5 + 8U);
}

TEST(RecordErase, TakesOutAllCellsOfATag) {
  CTLVRecordV3 record;
  for (unsigned int i = 0; i < 300; ++i) {
    record.addString(static_cast<unsigned short>(i % 3), std::string(i % 40, 'x'));
  }
  record.append(newCell(1, 1).release());
  EXPECT_EQ(record.erase(1), 101U);
  EXPECT_EQ(record.erase(1), 0U);
  EXPECT_EQ(record.count(), 200U);
  EXPECT_EQ(record.length(), CTLVRecordV3(record).length());
  EXPECT_EQ(record.erase(0) + record.erase(2), 200U);
  EXPECT_EQ(record.count(), 0U);
  EXPECT_TRUE(record.begin() == record.end());
  record.addUnsigned(7, 7);
  EXPECT_EQ(record.getUnsigned(7), 7U);
}

TEST(RecordErase, KeepsReferencesToCellsBefore) {
  CTLVRecordV3 record = numbered(10);
  CTLVCell& before = record[3];
  record.erase(std::next(record.begin(), 4));
  before.setUnsigned(20, 1000);
  EXPECT_EQ(&record[20], &before);
  EXPECT_EQ(record.length(), 8 * 5 + 6U);
}

TEST(RecordReplace, ChangesTheFirstCellWithThatTagOnly) {
  CTLVRecordV3 record;
  record.addUnsigned(1, 1).addUnsigned(2, 2).addUnsigned(2, 3);
  const CTLVCell* place = record.find(2);
  EXPECT_TRUE(record.replace(CTLVCell(CTLVCell::TLV_OCTET, 2, "abc", 3)));
  EXPECT_EQ(record.getOctets(2), "abc");
  EXPECT_EQ(record.find(2), place);
  EXPECT_EQ(record.findNext(*place)->getUnsigned(), 3U);
  EXPECT_FALSE(record.replace(CTLVCell(CTLVCell::TLV_OCTET, 3, "abc", 3)));
  EXPECT_EQ(record.count(), 3U);
}

TEST(RecordReplace, TakesARecordUpTo65535BytesAndNoFurther) {
  CTLVRecordV3 record;
  record.addUnsigned(1, 1).addUnsigned(2, 1);
  const std::string most(65535 - 5 - 4, 'x');
  const std::string more(65535 - 5 - 3, 'x');
  EXPECT_THROW(record.replace(CTLVCell(CTLVCell::TLV_OCTET, 1, more.data(), more.size())),
               CQOV_Exception);
  EXPECT_EQ(record.getUnsigned(1), 1U);
  EXPECT_TRUE(record.replace(CTLVCell(CTLVCell::TLV_OCTET, 1, most.data(), most.size())));
  EXPECT_EQ(record.length(), 65535U);
}

TEST(RecordFindNext, WalksThroughTheCellsOfATag) {
  CTLVRecordV3 record;
  for (unsigned int i = 0; i < 200; ++i) {
    if (i % 5 == 0) {
      record.append(newCell(i % 2, i).release());
    } else {
      record.addUnsigned(i % 2, i);
    }
  }
  const CTLVRecordV3& same = record;
  unsigned int expected = 1;
  for (const CTLVCell* cell = same.find(1); cell != nullptr; cell = same.findNext(*cell)) {
    ASSERT_EQ(cell->getUnsigned(), expected);
    expected += 2;
  }
  EXPECT_EQ(expected, 201U);
  record.findNext(*record.find(0))->setUnsigned(9, 9);
  EXPECT_EQ(record.getUnsigned(9), 9U);
}

TEST(RecordDefaults, AreGivenForMissingTagsOnly) {
  CTLVRecordV3 record;
  record.addUnsigned(1, 1).addSigned(2, -2).addBool(3, true).addString(4, "text");
  record.addOctets(5, "ab", 2);
  EXPECT_EQ(record.getUnsigned(1, 9), 1U);
  EXPECT_EQ(record.getSigned(2, 9), -2);
  EXPECT_TRUE(record.getBool(3, false));
  EXPECT_EQ(record.getString(4, "none"), "text");
  EXPECT_EQ(record.getOctets(5, "none"), "ab");
  EXPECT_EQ(record.getUnsigned(11, 9), 9U);
  EXPECT_EQ(record.getSigned(11, -9), -9);
  EXPECT_TRUE(record.getBool(11, true));
  EXPECT_EQ(record.getString(11, "none"), "none");
  EXPECT_EQ(record.getOctets(11, "none"), "none");
  EXPECT_THROW(record.getSigned(1, 9), CQOV_Exception);
}

}  // namespace
