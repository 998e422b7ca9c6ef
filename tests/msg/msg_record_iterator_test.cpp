// Iterators and references that are kept while their record changes around them.
#include <gtest/gtest.h>
#include <qovpub/qov_message_package.h>

#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace {

const std::string kLong = "a text of more than nineteen bytes";

CTLVRecordV3 numbered(unsigned short cells) {
  CTLVRecordV3 record;
  for (unsigned short tag = 0; tag < cells; ++tag) {
    record.addUnsigned(tag, tag);
  }
  return record;
}

std::vector<unsigned short> tagsFrom(CTLVRecordV3::iterator at, const CTLVRecordV3& record) {
  std::vector<unsigned short> tags;
  // One more than there are, so that a walk that does not end is seen.
  while (at != const_cast<CTLVRecordV3&>(record).end() && tags.size() <= record.count()) {
    tags.push_back(at->tag());
    ++at;
  }
  return tags;
}

TEST(RecordIterator, EndsWhereTheRecordDoesAfterACellBehindItWasErased) {
  CTLVRecordV3 record = numbered(5);
  const auto kept = record.begin();
  record.erase(std::next(kept, 2));
  EXPECT_EQ(tagsFrom(kept, record), (std::vector<unsigned short>{0, 1, 3, 4}));
}

TEST(RecordIterator, PassesTheBlocksThatErasuresBehindItEmptied) {
  CTLVRecordV3 record = numbered(300);
  const auto kept = record.begin();
  for (unsigned short tag = 1; tag < 299; ++tag) {
    ASSERT_EQ(record.erase(tag), 1U);
  }
  EXPECT_EQ(tagsFrom(kept, record), (std::vector<unsigned short>{0, 299}));
}

TEST(RecordIterator, ReachesCellsThatWereAddedBehindIt) {
  CTLVRecordV3 record = numbered(3);
  const auto kept = std::next(record.begin());
  for (unsigned short tag = 3; tag < 100; ++tag) {
    record.addUnsigned(tag, tag);
  }
  EXPECT_EQ(tagsFrom(kept, record).size(), 99U);
}

TEST(RecordIterator, ChangesTheRecordThatHasTheCellsNow) {
  auto moved = std::make_unique<CTLVRecordV3>();
  {
    CTLVRecordV3 record = numbered(5);
    const auto kept = record.begin();
    *moved = std::move(record);
    kept->setString(1, kLong);
    EXPECT_EQ(record.length(), 0U);
  }
  EXPECT_EQ(moved->length(), CTLVRecordV3(*moved).length());
  (*moved)[1].setString(7, kLong);
  EXPECT_EQ(moved->length(), CTLVRecordV3(*moved).length());
  CQOV_MsgPackage package;
  package.append(moved.release());
  unsigned char* bytes = nullptr;
  EXPECT_EQ(package.encode(bytes), 32 + 10 + 5 * 5 - 1 + kLong.size() + 1);
  delete[] bytes;
}

TEST(RecordIterator, ChangesTheRecordWithWhichItsOwnWasSwapped) {
  CTLVRecordV3 one = numbered(100);
  CTLVRecordV3 other = numbered(3);
  const auto kept = one.begin();
  std::swap(one, other);
  kept->setString(99, kLong);
  EXPECT_EQ(other.getString(99), kLong);
  EXPECT_EQ(one.length(), CTLVRecordV3(one).length());
  EXPECT_EQ(other.length(), CTLVRecordV3(other).length());
}

TEST(RecordChange, IsSeenThroughAReferenceThatWasConstOnce) {
  CTLVRecordV3 record = numbered(200);
  const CTLVRecordV3& same = record;
  const_cast<CTLVCell&>(same[1]).setString(150, kLong);
  EXPECT_EQ(record.length(), CTLVRecordV3(record).length());
  EXPECT_EQ(record.getString(150), kLong);
}

TEST(RecordChange, IsSeenThroughAConstReferenceToADecodedCell) {
  CQOV_MsgPackage sent;
  sent.addRecord(1) = numbered(200);
  sent.head().type_ = 1;
  unsigned char* bytes = nullptr;
  const unsigned int size = sent.encode(bytes);
  const std::unique_ptr<unsigned char[]> own(bytes);
  CQOV_MsgPackage package;
  ASSERT_NE(package.decode(bytes, size), CQOV_MsgPackage::kFailed);
  for (const CTLVCell& cell : static_cast<const CTLVRecordV3&>(package[0])) {
    const_cast<CTLVCell&>(cell).setUnsigned(cell.tag(), 70000);
  }
  EXPECT_EQ(package[0].length(), 200 * 8U);
}

}  // namespace
