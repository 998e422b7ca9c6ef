#include "module/message_copy.h"

#include <gtest/gtest.h>

#include <ace/Message_Block.h>
#include <qovpub/qov_om_message_package.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string>

#include "tests/module/package_blocks.h"
#include "tests/support/failing_allocations.h"

namespace qov {
namespace {

std::unique_ptr<CQOV_MsgPackage> packageIn(const ACE_Message_Block& block) {
  CQOV_MsgPackage* content = nullptr;
  std::memcpy(&content, block.rd_ptr(), sizeof content);
  return std::unique_ptr<CQOV_MsgPackage>(content);
}

std::unique_ptr<CTLVRecordV3> recordOf(unsigned char value) {
  auto record = std::make_unique<CTLVRecordV3>();
  auto cell = std::make_unique<CTLVCell>();
  cell->set_i(CTLVCell::TLV_OCTET, 5, &value, 1);
  record->append(cell.release());
  return record;
}

TEST(MessageCopy, OfAPackageBlockHasAPackageOfItsOwn) {
  CQOV_MsgPackage original;
  original.head().type_ = 3;
  original.head().opc_ = 42;
  original.append(recordOf(9).release());
  const BlockPtr block = test::blockOf(&original);

  const BlockPtr copy(copyMessage(*block));
  ASSERT_NE(copy, nullptr);
  const std::unique_ptr<CQOV_MsgPackage> content = packageIn(*copy);
  ASSERT_NE(content.get(), &original);
  EXPECT_EQ(std::memcmp(&content->head(), &original.head(), sizeof(QOVMsgHead)), 0);
  ASSERT_EQ(content->count(), 1u);
  EXPECT_NE(&(*content)[0], &original[0]);
  EXPECT_EQ((*content)[0][5].toString(), original[0][5].toString());
  EXPECT_EQ(copy->msg_type(), ACE_Message_Block::MB_DATA);
  EXPECT_EQ(copy->length(), sizeof(void*));
}

TEST(MessageCopy, OfAPackageBlockHasNoContinuation) {
  CQOV_MsgPackage original;
  const BlockPtr block = test::blockOf(&original);
  block->cont(new ACE_Message_Block(8));
  const BlockPtr copy(copyMessage(*block));
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->cont(), nullptr);
  packageIn(*copy);
}

TEST(MessageCopy, OfADerivedPackageIsRefused) {
  test::DerivedPackage original;
  const BlockPtr block = test::blockOf(&original);
  errno = 0;
  EXPECT_EQ(copyMessage(*block), nullptr);
  EXPECT_EQ(errno, ENOTSUP);
}

/// An OM package whose inner package has one record.
std::unique_ptr<CQOV_OM_MsgPackage> omPackage() {
  auto package = std::make_unique<CQOV_OM_MsgPackage>(new CT7QPackageV3);
  package->head().type_ = 3;
  package->get()->head().ser_ = 42;
  package->get()->append(recordOf(9).release());
  return package;
}

/// The OM package that a copy of the block with `original` carries, or null.
std::unique_ptr<CQOV_OM_MsgPackage> omCopyOf(const CQOV_MsgPackage& original) {
  const BlockPtr copy(copyMessage(*test::blockOf(&original)));
  std::unique_ptr<CQOV_MsgPackage> content;
  if (copy != nullptr) {
    content = packageIn(*copy);
  }
  auto* const om = dynamic_cast<CQOV_OM_MsgPackage*>(content.get());
  static_cast<void>(om != nullptr ? content.release() : nullptr);
  return std::unique_ptr<CQOV_OM_MsgPackage>(om);
}

TEST(MessageCopy, OfAnOmPackageHasAnInnerPackageOfItsOwn) {
  std::unique_ptr<CQOV_OM_MsgPackage> original = omPackage();
  original->append(recordOf(7).release());
  const std::unique_ptr<CQOV_OM_MsgPackage> copy = omCopyOf(*original);
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(std::memcmp(&copy->head(), &original->head(), sizeof(QOVMsgHead)), 0);
  EXPECT_EQ(copy->count(), 1u);
  ASSERT_NE(copy->get(), nullptr);
  ASSERT_NE(copy->get(), original->get());
  original.reset();
  EXPECT_EQ(copy->get()->head().ser_, 42u);
  ASSERT_EQ(copy->get()->count(), 1u);
  EXPECT_EQ((*copy->get())[0][5].getOctets(), "\x09");
}

TEST(MessageCopy, OfAnOmPackageWithoutAnInnerOneHasNone) {
  const std::unique_ptr<CQOV_OM_MsgPackage> copy = omCopyOf(CQOV_OM_MsgPackage(nullptr));
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->get(), nullptr);
}

TEST(MessageCopy, OfAnOmPackageWithADerivedInnerOneIsRefused) {
  class DerivedInner : public CT7QPackageV3 {};
  errno = 0;
  EXPECT_EQ(omCopyOf(CQOV_OM_MsgPackage(new DerivedInner)), nullptr);
  EXPECT_EQ(errno, ENOTSUP);
}

TEST(MessageCopy, OfAClassDerivedFromTheOmPackageIsRefused) {
  class DerivedOm : public CQOV_OM_MsgPackage {
   public:
    DerivedOm() : CQOV_OM_MsgPackage(nullptr) {}
  };
  errno = 0;
  EXPECT_EQ(omCopyOf(DerivedOm()), nullptr);
  EXPECT_EQ(errno, ENOTSUP);
}

TEST(MessageCopy, OfAnOmPackageWithoutMemoryForTheInnerOneIsNone) {
  const std::unique_ptr<CQOV_OM_MsgPackage> original = omPackage();
  const test::FailingAllocations fail = test::FailingAllocations::ofSize(sizeof(CT7QPackageV3));
  errno = 0;
  EXPECT_EQ(omCopyOf(*original), nullptr);
  EXPECT_TRUE(fail.hasFailed());
  EXPECT_EQ(errno, ENOMEM);
}

/// Whether the block has no copy for want of memory.
bool lacksMemory(const ACE_Message_Block& block, const test::FailingAllocations& fail) {
  errno = 0;
  return copyMessage(block) == nullptr && errno == ENOMEM && fail.hasFailed();
}

TEST(MessageCopy, OfAnOmPackageIsNoneWhicheverPartOfItFindsNoMemory) {
  const std::string value(100, 'x');
  const std::unique_ptr<CQOV_OM_MsgPackage> original = omPackage();
  original->addRecord(1).addString(1, value);
  original->get()->addRecord(1).addString(1, value);
  const BlockPtr block = test::blockOf(original.get());
  const long before = test::allocations();
  std::make_unique<CQOV_OM_MsgPackage>(*original);
  const long needed = test::allocations() - before;
  EXPECT_GE(needed, 4);
  for (long count = 0; count < needed; ++count) {
    EXPECT_TRUE(lacksMemory(*block, test::FailingAllocations(count, 1))) << count;
  }
}

// The first thing that a clone needs: ACE itself loses that when it gets no more.
TEST(MessageCopy, OfAPackageIsNoneWithoutMemoryForTheBlock) {
  const std::unique_ptr<CQOV_OM_MsgPackage> original = omPackage();
  const BlockPtr block = test::blockOf(original.get());
  EXPECT_TRUE(
      lacksMemory(*block, test::FailingAllocations::ofArraysThatGiveNull(sizeof(ACE_Data_Block))));
}

TEST(MessageCopy, OfAnyOtherBlockIsAClone) {
  const BlockPtr block(new ACE_Message_Block(16, ACE_Message_Block::MB_HANGUP));
  block->copy("12345678", 8);
  block->cont(new ACE_Message_Block(4));
  const BlockPtr copy(copyMessage(*block));
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(copy->rd_ptr(), block->rd_ptr());
  EXPECT_EQ(std::memcmp(copy->rd_ptr(), "12345678", 8), 0);
  EXPECT_NE(copy->cont(), nullptr);
}

TEST(MessageCopy, OfANullPackageIsAClone) {
  const BlockPtr block = test::blockOf(nullptr);
  const BlockPtr copy(copyMessage(*block));
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(packageIn(*copy), nullptr);
}

}  // namespace
}  // namespace qov
