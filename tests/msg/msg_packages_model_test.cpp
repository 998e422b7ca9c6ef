// Records that change places between packages while their cells are changed, against naive lists.
#include <gtest/gtest.h>
#include <qovpub/qov_message_package.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr unsigned short kTags = 90;
constexpr std::size_t kMostRecords = 9;

using Cells = std::vector<CTLVCell>;

/// What a record should hold.
struct NaiveRecord {
  std::uint64_t cmd;
  Cells cells;

  std::size_t first(unsigned short tag, std::size_t from = 0) const {
    while (from < cells.size() && cells[from].tag() != tag) {
      ++from;
    }
    return from;
  }
};

template <class Record>
auto cellAt(Record& record, std::size_t at) {
  return std::next(record.begin(), static_cast<std::ptrdiff_t>(at));
}

struct Pair {
  CQOV_MsgPackage package;
  std::vector<NaiveRecord> naive;
};

/// Three packages and the lists, which hold the same.
class PackagesModel {
 public:
  explicit PackagesModel(unsigned int seed) : random_(seed) {
    for (Pair& pair : pairs_) {
      pair.package.head().type_ = 1;
    }
  }

  void step() {
    Pair& one = pairs_[below(pairs_.size())];
    Pair& other = pairs_[below(pairs_.size())];
    switch (below(3)) {
      case 0:
        return changePackage(one, other);
      case 1:
        return changeRecord(one, other);
      default:
        return below(4) == 0 ? moveCell(one, other) : changeCell(one);
    }
  }

  void check() {
    for (const Pair& pair : pairs_) {
      ASSERT_EQ(pair.package.count(), pair.naive.size());
      for (std::size_t i = 0; i < pair.naive.size(); ++i) {
        check(pair.package[i], pair.naive[i]);
      }
    }
  }

 private:
  std::size_t below(std::size_t n) { return random_() % n; }
  unsigned short tag() { return static_cast<unsigned short>(below(kTags)); }

  CTLVCell value() {
    CTLVCell cell;
    switch (below(4)) {
      case 0:
        cell.setUnsigned(tag(), random_());
        break;
      case 1:
        cell.setString(tag(), std::string(below(40), 't'));
        break;
      case 2:
        cell.setSigned(tag(), -static_cast<std::int64_t>(below(100000)));
        break;
      default:
        cell.set_i(CTLVCell::TLV_OCTET, tag(), nullptr, 0);
    }
    return cell;
  }

  void check(const CTLVRecordV3& record, const NaiveRecord& naive) {
    ASSERT_EQ(record.cmd(), naive.cmd);
    ASSERT_EQ(record.count(), naive.cells.size());
    ASSERT_TRUE(std::equal(record.begin(), record.end(), naive.cells.begin()));
    unsigned long length = 0;
    for (const CTLVCell& cell : naive.cells) {
      length += 4U + cell.length();
    }
    ASSERT_EQ(record.length(), length);
    const unsigned short wanted = tag();
    const std::size_t at = naive.first(wanted);
    const CTLVCell* const found = record.find(wanted);
    ASSERT_EQ(found != nullptr, at < naive.cells.size());
    ASSERT_TRUE(found == nullptr || *found == naive.cells[at]);
  }

  // --- packages

  void changePackage(Pair& one, Pair& other) {
    switch (below(6)) {
      case 0:
      case 1:
        return addRecord(one);
      case 2:
        return movePackage(one, other);
      case 3:
        return copyPackage(one);
      case 4:
        return decode(one, other);
      default:
        return eraseRecord(one);
    }
  }

  void addRecord(Pair& to) {
    if (to.naive.size() >= kMostRecords) {
      return;
    }
    CTLVRecordV3& record = to.package.addRecord(to.naive.size());
    to.naive.push_back({to.naive.size(), {}});
    for (std::size_t left = below(5) == 0 ? below(200) : below(8); left > 0; --left) {
      to.naive.back().cells.push_back(value());
      record.add(to.naive.back().cells.back());
    }
  }

  void movePackage(Pair& to, Pair& from) {
    if (&to != &from) {
      to.package = std::move(from.package);
      to.naive = std::exchange(from.naive, {});
      from.package.head().type_ = 1;
    }
  }

  void copyPackage(Pair& pair) {
    CQOV_MsgPackage moved(std::move(pair.package));
    const CQOV_MsgPackage copy(moved);
    pair.package = below(2) != 0 ? CQOV_MsgPackage(copy) : std::move(moved);
  }

  void decode(Pair& from, Pair& to) {
    const std::vector<NaiveRecord> sent = from.naive;
    unsigned char* bytes = nullptr;
    const unsigned int size = from.package.encode(bytes);
    const std::unique_ptr<unsigned char[]> own(bytes);
    if (to.naive.size() + sent.size() > kMostRecords) {
      to.package.clear();
      to.naive.clear();
    }
    ASSERT_EQ(to.package.decode(bytes, size), size - 32);
    for (const NaiveRecord& record : sent) {
      to.naive.push_back(record);
      // A cell without a value loses its tag on the way.
      for (CTLVCell& cell : to.naive.back().cells) {
        cell = cell.length() == 0 ? CTLVCell() : cell;
      }
    }
  }

  void eraseRecord(Pair& pair) {
    if (!pair.naive.empty()) {
      const std::size_t i = below(pair.naive.size());
      pair.package.erase(i);
      pair.naive.erase(pair.naive.begin() + static_cast<std::ptrdiff_t>(i));
    }
  }

  // --- records

  void changeRecord(Pair& one, Pair& other) {
    if (one.naive.empty() || other.naive.empty()) {
      return;
    }
    const std::size_t i = below(one.naive.size());
    const std::size_t j = below(other.naive.size());
    CTLVRecordV3& record = one.package[i];
    CTLVRecordV3& from = other.package[j];
    switch (below(5)) {
      case 0:
        if (&record != &from) {
          std::swap(record, from);
          std::swap(one.naive[i], other.naive[j]);
        }
        break;
      case 1:
        record = from;
        one.naive[i] = NaiveRecord(other.naive[j]);
        break;
      case 2:
        one.package.replace(i, new CTLVRecordV3(std::move(record)));
        break;
      case 3:
        if (below(4) == 0) {
          record.clear();
          one.naive[i].cells.clear();
        }
        break;
      default:
        if (one.naive.size() < kMostRecords) {
          one.package.append(new CTLVRecordV3(std::move(record)));
          one.naive.push_back({one.naive[i].cmd, std::exchange(one.naive[i].cells, {})});
        }
    }
  }

  // --- cells

  void changeCell(Pair& pair) {
    if (pair.naive.empty()) {
      return;
    }
    const std::size_t i = below(pair.naive.size());
    CTLVRecordV3& record = pair.package[i];
    NaiveRecord& naive = pair.naive[i];
    switch (naive.cells.empty() ? below(2) : below(8)) {
      case 0:
        naive.cells.push_back(value());
        record.add(naive.cells.back());
        break;
      case 1:
        return append(record, naive);
      case 2:
        return eraseBehind(record, naive);
      case 3:
        return eraseTag(record, naive);
      case 4:
        return replace(record, naive);
      case 5:
        return swapTwo(record, naive);
      default:
        return assign(record, naive);
    }
  }

  /// A cell of `record`, the `at`th, by one of the ways to get one.
  CTLVCell& cell(CTLVRecordV3& record, const NaiveRecord& naive, std::size_t at) {
    const unsigned short wanted = naive.cells[at].tag();
    std::size_t walked = naive.first(wanted);
    switch (below(4)) {
      case 0: {
        CTLVCell* found = record.find(wanted);
        for (; walked != at; walked = naive.first(wanted, walked + 1)) {
          found = record.findNext(*found);
        }
        return *found;
      }
      case 1:
        return walked == at ? record[wanted] : *cellAt(record, at);
      case 2: {
        const CTLVRecordV3& same = record;
        return const_cast<CTLVCell&>(*cellAt(same, at));
      }
      default:
        return *cellAt(record, at);
    }
  }

  /// Changes the cell after the record has got it.
  void append(CTLVRecordV3& record, NaiveRecord& naive) {
    auto* const given = new CTLVCell;
    record.append(given);
    naive.cells.push_back(value());
    *given = naive.cells.back();
  }

  /// Goes on with an iterator from before.
  void eraseBehind(CTLVRecordV3& record, NaiveRecord& naive) {
    const std::size_t at = below(naive.cells.size());
    const std::size_t kept = below(at + 1);
    auto walk = cellAt(record, kept);
    record.erase(cellAt(record, at));
    naive.cells.erase(naive.cells.begin() + static_cast<std::ptrdiff_t>(at));
    if (kept == at) {
      return;
    }
    for (std::size_t i = kept; i < naive.cells.size(); ++i, ++walk) {
      ASSERT_TRUE(walk != record.end());
      ASSERT_EQ(*walk, naive.cells[i]);
    }
    ASSERT_TRUE(walk == record.end());
  }

  void eraseTag(CTLVRecordV3& record, NaiveRecord& naive) {
    const unsigned short gone = tag();
    const auto kept = std::remove_if(naive.cells.begin(), naive.cells.end(),
                                     [gone](const CTLVCell& each) { return each.tag() == gone; });
    ASSERT_EQ(record.erase(gone), static_cast<unsigned long>(naive.cells.end() - kept));
    naive.cells.erase(kept, naive.cells.end());
  }

  void replace(CTLVRecordV3& record, NaiveRecord& naive) {
    const CTLVCell to = value();
    const std::size_t at = naive.first(to.tag());
    ASSERT_EQ(record.replace(to), at < naive.cells.size());
    if (at < naive.cells.size()) {
      naive.cells[at] = to;
    }
  }

  void swapTwo(CTLVRecordV3& record, NaiveRecord& naive) {
    const std::size_t one = below(naive.cells.size());
    const std::size_t other = below(naive.cells.size());
    CTLVCell& first = cell(record, naive, one);
    std::swap(first, cell(record, naive, other));
    std::swap(naive.cells[one], naive.cells[other]);
  }

  /// A cell that has been moved from is empty and keeps type and tag.
  static CTLVCell takenFrom(CTLVCell& cell) {
    const CTLVCell taken(cell);
    cell.set_i(cell.type(), cell.tag(), nullptr, 0);
    return taken;
  }

  void moveCell(Pair& one, Pair& other) {
    if (one.naive.empty() || other.naive.empty()) {
      return;
    }
    const std::size_t i = below(one.naive.size());
    const std::size_t j = below(other.naive.size());
    CTLVRecordV3& to = one.package[i];
    Cells& naiveTo = one.naive[i].cells;
    CTLVRecordV3& from = other.package[j];
    Cells& naiveFrom = other.naive[j].cells;
    if (naiveFrom.empty()) {
      return;
    }
    const std::size_t at = below(naiveFrom.size());
    CTLVCell& moved = cell(from, other.naive[j], at);
    if (below(2) != 0) {
      to.add(std::move(moved));
      const CTLVCell taken = takenFrom(naiveFrom[at]);
      naiveTo.push_back(taken);
    } else {
      const std::size_t there = one.naive[i].first(moved.tag());
      const bool replaces = there < naiveTo.size();
      ASSERT_EQ(to.replace(std::move(moved)), replaces);
      if (replaces && &naiveTo[there] != &naiveFrom[at]) {
        naiveTo[there] = takenFrom(naiveFrom[at]);
      }
    }
  }

  void assign(CTLVRecordV3& record, NaiveRecord& naive) {
    const std::size_t at = below(naive.cells.size());
    CTLVCell& to = cell(record, naive, at);
    ASSERT_EQ(to, naive.cells[at]);
    naive.cells[at] = value();
    const CTLVCell& from = naive.cells[at];
    switch (below(3)) {
      case 0:
        to = from;
        break;
      case 1:
        to = CTLVCell(from);
        break;
      default:
        to.set_i(from.type(), from.tag(), from.value(), from.length());
    }
  }

  std::mt19937 random_;
  std::array<Pair, 3> pairs_;
};

TEST(PackagesModel, AnswersAsNaiveListsWouldWhateverMovesWhere) {
  for (unsigned int seed = 0; seed < 60; ++seed) {
    PackagesModel model(seed);
    for (int i = 0; i < 400; ++i) {
      model.step();
      model.check();
      ASSERT_FALSE(testing::Test::HasFatalFailure()) << "seed " << seed << ", step " << i;
    }
  }
}

}  // namespace
