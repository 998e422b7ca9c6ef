#ifndef QOV_TESTS_PROCESS_MODULES_OWN_MESSAGE_H
#define QOV_TESTS_PROCESS_MODULES_OWN_MESSAGE_H

#include <ace/Message_Block.h>
#include <qovpub/qov_message_package.h>
#include <qovpub/qov_module_loader.h>
#include <qovpub/qov_utility.h>

#include <cstdint>
#include <memory>

namespace qov::test {

/// An asynchronous message to module `gid` of this process.
inline std::unique_ptr<CQOV_MsgPackage> aMessageTo(int gid) {
  auto package = std::make_unique<CQOV_MsgPackage>();
  package->head().type_ = QOVMsgHead::kNotice;
  package->head().rpid_ = static_cast<std::uint8_t>(QOV_Utility::getProcPID());
  package->head().rmid_ = static_cast<std::uint8_t>(gid);
  return package;
}

/// Lets `put`, which takes a block and tells whether it has, have a message to module `gid`. The
/// result is what `put` tells.
template <class Put>
bool putAMessageTo(int gid, Put put, std::uint64_t operation = 0) {
  auto package = aMessageTo(gid);
  package->head().opc_ = operation;
  const CQOV_MsgPackage* const pointer = package.get();
  ACE_Message_Block* const block = new ACE_Message_Block(sizeof pointer);
  block->copy(reinterpret_cast<const char*>(&pointer), sizeof pointer);
  const bool isTaken = put(block);
  if (isTaken) {
    static_cast<void>(package.release());
  } else {
    block->release();
  }
  return isTaken;
}

/// Sends an asynchronous message to the workers of module `gid` of this process, from any thread.
inline void sendAMessageTo(int gid) {
  using Loader = ACE_Singleton<CQOV_Module_Loader, ACE_Thread_Mutex>;
  putAMessageTo(gid, [gid](ACE_Message_Block* block) {
    return Loader::instance()->sendMsg(static_cast<u_short>(gid), block) == 0;
  });
}

}  // namespace qov::test

#endif
