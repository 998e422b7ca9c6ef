#include "module/table_copies.h"

#include <ace/Time_Value.h>

#include <cerrno>

#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_message_package.h>
#include <qovpub/qov_request.h>
#include <qovpub/qov_utility.h>

#include "diag/log_ids.h"
#include "module/message_copy.h"
#include "task/message_block.h"
#include "task/send_cause.h"

namespace {

/// An asynchronous message of another module of this process that arrives at module `receiver`, and
/// is not on its way from there to yet another one.
bool isTold(const QOVMsgHead& head, u_short receiver) {
  return (head.type_ == QOVMsgHead::kNotice || head.type_ == QOVMsgHead::kEvent) &&
         head.rmid_ == receiver && head.smid_ != receiver &&
         head.spid_ == static_cast<std::uint8_t>(QOV_Utility::getProcPID());
}

const char* whyLost(int error) {
  return error == ENOTSUP ? "it is of a class of its own"
                          : QOV_TextOf(qov::reasonOf(qov::sendCauseOf(error)));
}

}  // namespace

CQOV_Module_Loader::ModuleTable::Copies::~Copies() {
  while (first_ != nullptr) {
    qov::releaseWithPackage(takeFirst());
  }
}

void CQOV_Module_Loader::ModuleTable::Copies::make(const ModuleTable& table,
                                                   const ACE_Message_Block& mb, u_short receiver) {
  const CQOV_MsgPackage* const package = qov::packageOf(mb);
  if (package == nullptr || !isTold(package->head(), receiver)) {
    return;
  }
  sender_ = package->head().smid_;
  opc_ = package->head().opc_;
  for (const std::uint8_t taker : table.takers_) {
    if (taker == receiver || taker == sender_ ||
        !table.modules_[taker]->copies.has(sender_, opc_)) {
      continue;
    }
    ACE_Message_Block* const copy = qov::copyMessageFor(taker, mb);
    if (copy == nullptr) {
      lose(taker, errno);
      continue;
    }
    copy->next(first_);
    first_ = copy;
  }
}

void CQOV_Module_Loader::ModuleTable::Copies::put(const ModuleTable& table) {
  while (first_ != nullptr) {
    ACE_Message_Block* const copy = takeFirst();
    const std::uint8_t taker = qov::packageOf(*copy)->head().rmid_;
    ACE_Time_Value timeout(kPutSeconds);
    if (table.modules_[taker]->taskMgr->putq(copy, &timeout) < 0) {
      lose(taker, errno);
      qov::releaseWithPackage(copy);
    }
  }
}

void CQOV_Module_Loader::ModuleTable::Copies::tellLost(CQOVDebugKitGuard& guard) const {
  if (losers_.none()) {
    return;
  }
  for (unsigned int taker = 0; taker < kGids; ++taker) {
    if (losers_[taker]) {
      guard.warn(qov::log_id::kCopyLost, __FUNCTION__, __LINE__,
                 "Module(%u) gets no copy of a message: SMID=%u,OPC=%llu: %s.", taker,
                 unsigned{sender_}, static_cast<unsigned long long>(opc_), whyLost(errors_[taker]));
    }
  }
}

ACE_Message_Block* CQOV_Module_Loader::ModuleTable::Copies::takeFirst() {
  ACE_Message_Block* const first = first_;
  first_ = first->next();
  first->next(nullptr);
  return first;
}

void CQOV_Module_Loader::ModuleTable::Copies::lose(unsigned int taker, int error) {
  losers_.set(taker);
  errors_[taker] = error;
}
