#ifndef QOV_TESTS_PROCESS_MODULES_OWN_MESSAGE_H
#define QOV_TESTS_PROCESS_MODULES_OWN_MESSAGE_H

#include <ace/Message_Block.h>
#include <qovpub/qov_message_package.h>
#include <qovpub/qov_module_loader.h>
#include <qovpub/qov_utility.h>

#include <cstdint>
#include <memory>

namespace qov::test {

/// Sends an asynchronous message to the workers of module `gid` of this process, from any thread.
inline void sendAMessageTo(int gid) {
  constexpr std::uint8_t kAsyncType = 3;
  auto package = std::make_unique<CQOV_MsgPackage>();
  package->head().type_ = kAsyncType;
  package->head().rpid_ = static_cast<std::uint8_t>(QOV_Utility::getProcPID());
  package->head().rmid_ = static_cast<std::uint8_t>(gid);
  const CQOV_MsgPackage* const pointer = package.get();
  ACE_Message_Block* const block = new ACE_Message_Block(sizeof pointer);
  block->copy(reinterpret_cast<const char*>(&pointer), sizeof pointer);
  using Loader = ACE_Singleton<CQOV_Module_Loader, ACE_Thread_Mutex>;
  if (Loader::instance()->sendMsg(static_cast<u_short>(gid), block) == 0) {
    static_cast<void>(package.release());
  } else {
    block->release();
  }
}

}  // namespace qov::test

#endif
