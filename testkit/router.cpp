#include "testkit/router.h"

#include <qovpub/qov_task_mgr.h>

#include <cerrno>
#include <cstring>
#include <new>

namespace qov {

namespace {

/// The pointer that a block of a task carries; null for any other block.
template <class T>
T* pointerIn(const ACE_Message_Block* mb) {
  T* pointer = nullptr;
  if (mb != nullptr && mb->msg_type() == ACE_Message_Block::MB_DATA &&
      mb->length() == sizeof pointer) {
    std::memcpy(&pointer, mb->rd_ptr(), sizeof pointer);
  }
  return pointer;
}

ACE_Message_Block* blockWith(const CQOV_MsgPackage* package) {
  auto* const mb = new ACE_Message_Block(sizeof package);
  mb->copy(reinterpret_cast<const char*>(&package), sizeof package);
  return mb;
}

/// What the leader leaves in errno of a send() that got no answer.
int causeOf(QOVReason reason) {
  switch (reason) {
    case QOVReason::kTimedOut:
      return ETIMEDOUT;
    case QOVReason::kNoReceiver:
      return EHOSTUNREACH;
    case QOVReason::kNoMemory:
      return ENOMEM;
    case QOVReason::kBusy:
      return EBUSY;
    case QOVReason::kInvalid:
      return EINVAL;
    default:
      return ECONNABORTED;
  }
}

}  // namespace

TestRouter::TestRouter(CQOV_Leader_Task& leader, OnTimeout onTimeout)
    : leader_(leader), ownQueue_(leader.msg_queue()), onTimeout_(std::move(onTimeout)) {
  leader_.msg_queue(this);
}

TestRouter::~TestRouter() {
  leader_.msg_queue(ownQueue_);
}

const TestRouter::Entry& TestRouter::entryFor(const QOVMsgHead& head) const {
  static const Entry nobody;
  const auto found = table_.find({head.rmid_, head.opc_});
  return head.rpid_ == QOVTestProcess::kId && found != table_.end() ? found->second : nobody;
}

bool TestRouter::isOwnRequest(const QOVMsgHead& head) const {
  return head.type_ == QOVMsgHead::kRequest && head.spid_ == QOVTestProcess::kId &&
         head.smid_ == leader_.taskMgr()->moduleId();
}

int TestRouter::enqueue_tail(ACE_Message_Block* mb, ACE_Time_Value*) {
  auto* const message = pointerIn<CQOV_MsgPackage>(mb);
  if (message == nullptr) {
    ACE_Message_Block::release(mb);
    return 1;
  }
  const Entry entry = entryFor(message->head());
  if (entry.reason == QOVReason::kNoRoom) {
    errno = EWOULDBLOCK;
    return -1;
  }
  sent_.emplace_back(message);
  const auto* const sender = pointerIn<TimeoutDesc>(mb->cont());
  mb->release();
  if (sender != nullptr) {
    // The sender's still if this throws.
    serve(*sender, *message, entry);
    delete sender;
  }
  return 1;
}

void TestRouter::serve(const TimeoutDesc& sender, const CQOV_MsgPackage& request,
                       const Entry& entry) {
  if (!isOwnRequest(request.head())) {
    sender.task_->endWait(EINVAL);
    return;
  }
  if (entry.reason == QOVReason::kNone) {
    auto answer = CreateQovRspPackage(request, entry.result);
    if (entry.fill != nullptr) {
      (*entry.fill)(request, *answer);
    }
    sender.task_->putMsg(QOVMsgHead::kResponse, blockWith(answer.release()), nullptr);
    return;
  }
  const bool isEndless = sender.timeout_ == ACE_Time_Value::zero;
  if (entry.reason == QOVReason::kTimedOut && isEndless) {
    sender.task_->endWait(ECONNABORTED);
    return;
  }
  if (entry.reason == QOVReason::kTimedOut) {
    onTimeout_(std::chrono::seconds(sender.timeout_.sec()) +
               std::chrono::microseconds(sender.timeout_.usec()));
  }
  sender.task_->endWait(causeOf(entry.reason));
}

}  // namespace qov
