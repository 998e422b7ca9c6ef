#include "module/message_copy.h"

#include <gtest/gtest.h>

#include <ace/Message_Block.h>
#include <qovpub/qov_message_package.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "tests/module/package_blocks.h"

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
