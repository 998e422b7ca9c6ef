#include <ace/Message_Block.h>
#include <ace/Time_Value.h>

#include <cerrno>
#include <cstring>
#include <optional>

#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_module_loader.h>
#include <qovpub/qov_task_mgr.h>

#include "diag/log_ids.h"
#include "module/message_copy.h"
#include "module/module_table.h"
#include "module/table_copies.h"
#include "module/table_guards.h"
#include "task/message_block.h"

enum class CQOV_Module_Loader::ModuleTable::Delivery { kDone, kNobody, kNoManager, kRefused };

// What goes wrong is logged when the table is free again: a slow log must not keep a writer out.

int CQOV_Module_Loader::sendMsg(u_short pid, ACE_Message_Block* mb) {
  CQOVDebugKitGuard guard(0, "int CQOV_Module_Loader::sendMsg(u_short, ACE_Message_Block*)");
  if (mb == nullptr) {
    guard.warn(qov::log_id::kRouteNull, __FUNCTION__, __LINE__, "Null message which pid is %u.",
               unsigned{pid});
    return -1;
  }
  using Delivery = ModuleTable::Delivery;
  std::optional<ModuleTable::Copies> copies;
  const Delivery delivery = table_->deliver(pid, mb, copies);
  if (delivery == Delivery::kNobody) {
    guard.warn(qov::log_id::kRouteNoModule, __FUNCTION__, __LINE__, "Pid %u is invalid!",
               unsigned{pid});
  } else if (delivery == Delivery::kRefused) {
    guard.error(qov::log_id::kRouteRefused, __FUNCTION__, __LINE__,
                "Failed to send message to pid %u.", unsigned{pid});
  }
  if (delivery != Delivery::kDone) {
    return -1;
  }
  if (copies) {
    copies->tellLost(guard);
  }
  return 0;
}

CQOV_Module_Loader::ModuleTable::Delivery CQOV_Module_Loader::ModuleTable::deliver(
    u_short pid, ACE_Message_Block* mb, std::optional<Copies>& copies) {
  const TableReader table(*this);
  const bool known = pid < modules_.size() && modules_[pid] != nullptr;
  if (!known || modules_[pid]->taskMgr == nullptr) {
    if (table.locked()) {
      // Where the table cannot be locked, errno says that.
      errno = EHOSTUNREACH;
    }
    return known ? Delivery::kNoManager : Delivery::kNobody;
  }
  if (!takers_.empty()) {
    copies.emplace();
    copies->make(*this, *mb, pid);
  }
  ACE_Time_Value timeout(kPutSeconds);
  if (modules_[pid]->taskMgr->putq(mb, &timeout) < 0) {
    return Delivery::kRefused;
  }
  if (copies) {
    copies->put(*this);
  }
  return Delivery::kDone;
}

void CQOV_Module_Loader::sendMsg2All(ACE_Message_Block* mb) {
  CQOVDebugKitGuard guard(0, "void CQOV_Module_Loader::sendMsg2All(ACE_Message_Block*)");
  if (mb == nullptr) {
    guard.warn(qov::log_id::kRouteAllNull, __FUNCTION__, __LINE__, "Null message.");
    return;
  }
  std::bitset<ModuleTable::kGids> refused;
  const bool copied = table_->copyToAll(*mb, refused);
  const int error = errno;
  for (unsigned int gid = 0; gid < ModuleTable::kGids; ++gid) {
    if (refused[gid]) {
      guard.error(qov::log_id::kRouteAllRefused, __FUNCTION__, __LINE__,
                  "Failed to send message to pid %u.", gid);
    }
  }
  if (!copied) {
    guard.error(qov::log_id::kRouteAllNotCopied, __FUNCTION__, __LINE__,
                "Failed to copy message: %s.", std::strerror(error));
    return;
  }
  qov::releaseWithPackage(mb);
}

bool CQOV_Module_Loader::ModuleTable::copyToAll(const ACE_Message_Block& mb,
                                                std::bitset<kGids>& refused) {
  const TableReader table(*this);
  for (unsigned int gid = 0; gid < kGids; ++gid) {
    if (modules_[gid] == nullptr) {
      continue;
    }
    ACE_Message_Block* const copy = qov::copyMessageFor(gid, mb);
    if (copy == nullptr) {
      return false;
    }
    ACE_Time_Value timeout(kPutSeconds);
    // Unlike for sendMsg(), a result of 0 is a failure; both are kept.
    if (modules_[gid]->taskMgr->putq(copy, &timeout) <= 0) {
      qov::releaseWithPackage(copy);
      refused.set(gid);
    }
  }
  return true;
}
