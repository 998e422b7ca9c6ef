#include "task/message_block.h"

#include <qovpub/qov_leader_task.h>

#include <cerrno>
#include <new>

namespace qov {

namespace {

/// A mark of ours among the flags that ACE leaves to users. On a continuation it tells a descriptor
/// from whatever else a module may chain behind its messages.
constexpr ACE_Message_Block::Message_Flags kMark = ACE_Message_Block::USER_FLAGS;

/// The data part of a block, with the bytes of a pointer in it.
class PointerData : public ACE_Data_Block {
 public:
  explicit PointerData(const void* pointer)
      : ACE_Data_Block(kPointerSize, ACE_Message_Block::MB_DATA, bytes_, nullptr, nullptr,
                       ACE_Message_Block::DONT_DELETE, nullptr) {
    std::memcpy(bytes_, &pointer, kPointerSize);
  }

 private:
  /// Tells the block that it is not to be deleted: it goes with the block, of which it is a part.
  ACE_Data_Block* release_i() override { return this; }

  char bytes_[kPointerSize];
};

/// Makes the data part before ACE's block, which needs it.
struct PointerDataHolder {
  PointerData data_;
};

/// A block, its data part and its bytes in one allocation.
class PointerBlock : private PointerDataHolder, public ACE_Message_Block {
 public:
  explicit PointerBlock(const void* pointer)
      : PointerDataHolder{PointerData(pointer)}, ACE_Message_Block(&data_) {
    wr_ptr(kPointerSize);
  }

  /// A second block with the same bytes. None can share data that go with this one.
  ACE_Message_Block* duplicate() const override { return clone(); }
};

/// Null with errno ENOMEM without memory.
ACE_Message_Block* makeBlock(std::size_t size, ACE_Message_Block::ACE_Message_Type type) {
  auto* const mb = new (std::nothrow) ACE_Message_Block(size, type);
  // ACE leaves the block without its data part when only that could not be had.
  if (mb == nullptr || mb->data_block() == nullptr) {
    ACE_Message_Block::release(mb);
    // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks): the analyzer does not see it freed
    errno = ENOMEM;
    return nullptr;
  }
  return mb;
}

}  // namespace

ACE_Message_Block* makePointerBlock(const void* pointer) {
  ACE_Message_Block* const mb = new (std::nothrow) PointerBlock(pointer);
  if (mb == nullptr) {
    errno = ENOMEM;
  }
  return mb;
}

ACE_Message_Block* makeStopBlock() {
  return makeBlock(0, ACE_Message_Block::MB_STOP);
}

bool chainTimeoutDesc(ACE_Message_Block& mb, const TimeoutDesc* desc) {
  ACE_Message_Block* const block = makePointerBlock(desc);
  if (block == nullptr) {
    return false;
  }
  block->set_self_flags(kMark);
  mb.cont(block);
  return true;
}

bool carriesTimeoutDesc(const ACE_Message_Block& mb) {
  const ACE_Message_Block* const block = mb.cont();
  return block != nullptr && (block->self_flags() & kMark) != 0;
}

std::unique_ptr<TimeoutDesc> takeTimeoutDesc(ACE_Message_Block& mb) {
  const BlockPtr block(mb.cont());
  if (block == nullptr) {
    return nullptr;
  }
  mb.cont(nullptr);
  void* pointer = nullptr;
  readPointer(*block, pointer);
  return std::unique_ptr<TimeoutDesc>(static_cast<TimeoutDesc*>(pointer));
}

void markUnawaited(ACE_Message_Block& mb) {
  mb.set_self_flags(kMark);
}

bool isUnawaited(const ACE_Message_Block& mb) {
  return (mb.self_flags() & kMark) != 0;
}

CQOV_MsgPackage* packageOf(const ACE_Message_Block& mb) {
  void* pointer = nullptr;
  if (mb.msg_type() != ACE_Message_Block::MB_DATA || !readPointer(mb, pointer)) {
    return nullptr;
  }
  return static_cast<CQOV_MsgPackage*>(pointer);
}

void releaseWithPackage(ACE_Message_Block* mb) {
  if (mb == nullptr) {
    return;
  }
  delete packageOf(*mb);
  mb->release();
}

}  // namespace qov
