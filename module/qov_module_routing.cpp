#include <ace/Guard_T.h>
#include <ace/Message_Block.h>
#include <ace/Time_Value.h>

#include <cerrno>
#include <cstring>

#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_module_loader.h>
#include <qovpub/qov_task_mgr.h>

#include "module/message_copy.h"
#include "module/module_entry.h"
#include "task/doorbell.h"
#include "task/message_block.h"

namespace {

/// Holds the table for reading. A leader has to wait until the modules are loaded; whom it has work
/// for must not.
class TableReader {
 public:
  explicit TableReader(ACE_RW_Thread_Mutex& lock) : lock_(lock, false) {
    if (!lock_.locked()) {
      qov::ringCollected();
      lock_.acquire_read();
    }
  }

 private:
  ACE_Read_Guard<ACE_RW_Thread_Mutex> lock_;
};

/// putq() takes it for an absolute time, so that a full queue refuses at once.
constexpr time_t kPutSeconds = 1;

}  // namespace

int CQOV_Module_Loader::sendMsg(u_short pid, ACE_Message_Block* mb) {
  CQOVDebugKitGuard guard(0, "int CQOV_Module_Loader::sendMsg(u_short, ACE_Message_Block*)");
  if (mb == nullptr) {
    guard.warn(65580, __FUNCTION__, __LINE__, "Null message which pid is %u.", unsigned{pid});
    return -1;
  }
  const TableReader reader(lock_);
  if (pid >= modules_.size() || modules_[pid] == nullptr) {
    guard.warn(65581, __FUNCTION__, __LINE__, "Pid %u is invalid!", unsigned{pid});
    return -1;
  }
  if (modules_[pid]->taskMgr == nullptr) {
    return -1;
  }
  ACE_Time_Value timeout(kPutSeconds);
  if (modules_[pid]->taskMgr->putq(mb, &timeout) < 0) {
    guard.error(65582, __FUNCTION__, __LINE__, "Failed to send message to pid %u.", unsigned{pid});
    return -1;
  }
  return 0;
}

void CQOV_Module_Loader::sendMsg2All(ACE_Message_Block* mb) {
  CQOVDebugKitGuard guard(0, "void CQOV_Module_Loader::sendMsg2All(ACE_Message_Block*)");
  if (mb == nullptr) {
    guard.warn(65583, __FUNCTION__, __LINE__, "Null message.");
    return;
  }
  const TableReader reader(lock_);
  for (unsigned int gid = 0; gid < modules_.size(); ++gid) {
    if (modules_[gid] == nullptr) {
      continue;
    }
    ACE_Message_Block* const copy = qov::copyMessage(*mb);
    if (copy == nullptr) {
      guard.error(65585, __FUNCTION__, __LINE__, "Failed to copy message: %s.",
                  std::strerror(errno));
      return;
    }
    ACE_Time_Value timeout(kPutSeconds);
    // Unlike for sendMsg(), a result of 0 is a failure; both are kept.
    if (modules_[gid]->taskMgr->putq(copy, &timeout) <= 0) {
      qov::releaseWithPackage(copy);
      guard.error(65584, __FUNCTION__, __LINE__, "Failed to send message to pid %u.", gid);
    }
  }
  qov::releaseWithPackage(mb);
}
