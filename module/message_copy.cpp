#include "module/message_copy.h"

#include <ace/Message_Block.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <typeinfo>

#include <qovpub/qov_om_message_package.h>
#include <qovpub/qov_utility.h>

#include "task/message_block.h"

namespace qov {
namespace {

/// Whether the inner package, if there is one, is of the class that a copy's will be.
bool hasPlainInner(const CQOV_OM_MsgPackage& package) {
  const CT7QPackageV3* const inner = package.get();
  return inner == nullptr || typeid(*inner) == typeid(CT7QPackageV3);
}

std::unique_ptr<CQOV_MsgPackage> copyPackage(const CQOV_MsgPackage& package) {
  try {
    if (typeid(package) == typeid(CQOV_MsgPackage)) {
      return std::make_unique<CQOV_MsgPackage>(package);
    }
    if (typeid(package) == typeid(CQOV_OM_MsgPackage)) {
      const auto& om = static_cast<const CQOV_OM_MsgPackage&>(package);
      if (hasPlainInner(om)) {
        return std::make_unique<CQOV_OM_MsgPackage>(om);
      }
    }
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return nullptr;
  }
  errno = ENOTSUP;
  return nullptr;
}

BlockPtr copyPackageBlock(const ACE_Message_Block& mb, const CQOV_MsgPackage& package) {
  std::unique_ptr<CQOV_MsgPackage> packageCopy = copyPackage(package);
  if (packageCopy == nullptr) {
    return nullptr;
  }
  BlockPtr copy(mb.clone());
  if (copy == nullptr) {
    return nullptr;
  }
  BlockPtr continuation(copy->cont());
  copy->cont(nullptr);
  const CQOV_MsgPackage* const pointer = packageCopy.release();
  std::memcpy(copy->rd_ptr(), &pointer, sizeof pointer);
  return copy;
}

}  // namespace

ACE_Message_Block* copyMessage(const ACE_Message_Block& mb) {
  const CQOV_MsgPackage* const package = packageOf(mb);
  return package == nullptr ? mb.clone() : copyPackageBlock(mb, *package).release();
}

ACE_Message_Block* copyMessageFor(unsigned int gid, const ACE_Message_Block& mb) {
  ACE_Message_Block* const copy = copyMessage(mb);
  CQOV_MsgPackage* const package = copy != nullptr ? packageOf(*copy) : nullptr;
  if (package != nullptr) {
    // Known since the first module was made.
    package->head().rpid_ = static_cast<std::uint8_t>(QOV_Utility::getProcPID() & 0xFFU);
    package->head().rmid_ = static_cast<std::uint8_t>(gid);
    markUnawaited(*copy);
  }
  return copy;
}

}  // namespace qov
