#ifndef QOV_TESTS_MODULE_PACKAGE_BLOCKS_H
#define QOV_TESTS_MODULE_PACKAGE_BLOCKS_H

#include <qovpub/qov_message_package.h>

#include <cstdint>
#include <memory>

#include "task/message_block.h"

namespace qov::test {

/// A package of a class of its own, of which there is no copy.
class DerivedPackage : public CQOV_MsgPackage {};

/// An asynchronous message with one record to the module `gid` of this process.
template <class Package = CQOV_MsgPackage>
std::unique_ptr<CQOV_MsgPackage> messageTo(unsigned gid, unsigned long long opc) {
  constexpr std::uint8_t kProcess = 7;
  std::unique_ptr<CQOV_MsgPackage> made = std::make_unique<Package>();
  made->head().type_ = QOVMsgHead::kNotice;
  made->head().opc_ = opc;
  made->head().rpid_ = kProcess;
  made->head().rmid_ = static_cast<std::uint8_t>(gid);
  made->append(new CTLVRecordV3);
  return made;
}

/// A block that carries `content`, which it does not own.
inline BlockPtr blockOf(const CQOV_MsgPackage* content) {
  return BlockPtr(makePointerBlock(content));
}

}  // namespace qov::test

#endif
