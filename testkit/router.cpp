#include "testkit/router.h"

#include <qovpub/qov_task_mgr.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

#include "testkit/thread_of.h"

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

/// Longer time-outs, which the clock cannot hold, end with this one.
constexpr std::chrono::hours kLongest(100 * 365 * 24);

TestRouter::Duration spanOf(const ACE_Time_Value& timeout) {
  return std::min<std::chrono::seconds>(std::chrono::seconds(timeout.sec()), kLongest) +
         std::chrono::microseconds(timeout.usec());
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

TestRouter::TestRouter(CQOV_Leader_Task& leader, Duration& now)
    : leader_(leader), ownQueue_(leader.msg_queue()), now_(now), worker_(leader.taskMgr()) {
  leader_.msg_queue(this);
}

TestRouter::~TestRouter() {
  leader_.msg_queue(ownQueue_);
}

const TestRouter::Entry& TestRouter::entryFor(const QOVMsgHead& head) const {
  static const Entry nobody;
  // A copy: the key takes references, and the header is packed.
  const std::uint64_t opc = head.opc_;
  const auto found = table_.find({head.rmid_, opc});
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
  if (stopped_ || entry.reason == QOVReason::kNoRoom) {
    errno = stopped_ ? ESHUTDOWN : EWOULDBLOCK;
    return -1;
  }
  sent_.emplace_back(message);
  const auto* const sender = pointerIn<TimeoutDesc>(mb->cont());
  mb->release();
  if (sender != nullptr) {
    // The sender's still if this throws.
    serve(*sender, answerTo(*message, entry));
    delete sender;
  }
  return 1;
}

QOVAnswer TestRouter::answerTo(const CQOV_MsgPackage& request, const Entry& entry) const {
  if (!isOwnRequest(request.head())) {
    return QOVAnswer(QOVReason::kInvalid);
  }
  if (entry.reason != QOVReason::kNone) {
    return QOVAnswer(entry.reason);
  }
  auto answer = CreateQovRspPackage(request, entry.result);
  if (entry.fill != nullptr) {
    (*entry.fill)(request, *answer);
  }
  return QOVAnswer(std::move(answer));
}

void TestRouter::serve(const TimeoutDesc& sender, QOVAnswer answer) {
  const bool timesOut = answer.reason() == QOVReason::kTimedOut;
  const Duration end = now_ + (timesOut ? spanOf(sender.timeout_) : Duration());
  if (sender.later_ == nullptr) {
    now_ = end;
    endWait(sender, std::move(answer));
    return;
  }
  const auto place = std::find_if(later_.begin(), later_.end(),
                                  [end](const Later& other) { return other.due > end; });
  later_.insert(place, Later{end, std::move(answer)})->continuation.reset(sender.later_);
}

void TestRouter::endWait(const TimeoutDesc& sender, QOVAnswer answer) {
  if (answer) {
    sender.task_->putMsg(QOVMsgHead::kResponse, blockWith(answer.take().release()), nullptr);
    return;
  }
  const bool isEndless = sender.timeout_ == ACE_Time_Value::zero;
  sender.task_->endWait(causeOf(answer.reason() == QOVReason::kTimedOut && isEndless
                                    ? QOVReason::kStopped
                                    : answer.reason()));
}

bool TestRouter::runLater(Duration until) {
  if (later_.empty() || later_.front().due > until) {
    return false;
  }
  Later next = std::move(later_.front());
  later_.pop_front();
  now_ = std::max(now_, next.due);
  run(std::move(next));
  return true;
}

void TestRouter::stop() {
  stopped_ = true;
  while (!later_.empty()) {
    Later next = std::move(later_.front());
    later_.pop_front();
    next.answer = QOVAnswer(QOVReason::kStopped);
    run(std::move(next));
  }
}

void TestRouter::run(Later later) {
  const ThreadOf thread(worker_);
  const std::uint8_t result = later.answer ? later.answer->head().mst_ : 0;
  qov::runLater(std::move(later.continuation),
                result == 0 ? std::move(later.answer) : QOVAnswer(QOVReason::kRefused, result),
                worker_);
}

}  // namespace qov
