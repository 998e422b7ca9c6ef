#ifndef QOV_TASK_MESSAGE_BLOCK_H
#define QOV_TASK_MESSAGE_BLOCK_H

#include <ace/Message_Block.h>
#include <qovpub/qov_message_package.h>

#include <cstddef>
#include <cstring>
#include <memory>

struct TimeoutDesc;

namespace qov {

/// Bytes of a block that carries a pointer.
constexpr std::size_t kPointerSize = sizeof(void*);

struct BlockReleaser {
  void operator()(ACE_Message_Block* mb) const { mb->release(); }
};
using BlockPtr = std::unique_ptr<ACE_Message_Block, BlockReleaser>;

/// A data block of 8 bytes that holds `pointer`; null with errno ENOMEM without memory.
ACE_Message_Block* makePointerBlock(const void* pointer);

/// An empty MB_STOP block; null with errno ENOMEM without memory.
ACE_Message_Block* makeStopBlock();

/// Chains `desc`, the descriptor of a sender that waits, behind `mb`. False with errno ENOMEM
/// without memory; `desc` stays with the caller then.
bool chainTimeoutDesc(ACE_Message_Block& mb, const TimeoutDesc* desc);

/// True when chainTimeoutDesc() chained a descriptor behind `mb`.
bool carriesTimeoutDesc(const ACE_Message_Block& mb);

/// Takes the descriptor out of the continuation of `mb`, and the continuation off `mb`; null when
/// there is none.
std::unique_ptr<TimeoutDesc> takeTimeoutDesc(ACE_Message_Block& mb);

/// Marks the block of a package that goes without its sender's waiting, though it may look like a
/// request that waits: a broadcast's copy.
void markUnawaited(ACE_Message_Block& mb);
bool isUnawaited(const ACE_Message_Block& mb);

/// Copies the pointer out of a block of exactly 8 bytes. False, and `pointer` null, for any other
/// block, and for one that only says that it has them.
inline bool readPointer(const ACE_Message_Block& mb, void*& pointer) {
  pointer = nullptr;
  if (mb.length() != kPointerSize || mb.base() == nullptr) {
    return false;
  }
  std::memcpy(&pointer, mb.rd_ptr(), kPointerSize);
  return true;
}

/// Reads the package of a data block; null when it carries none.
CQOV_MsgPackage* packageOf(const ACE_Message_Block& mb);

/// Releases `mb`, and deletes its package first when it is a data block that carries one.
void releaseWithPackage(ACE_Message_Block* mb);

}  // namespace qov

#endif
