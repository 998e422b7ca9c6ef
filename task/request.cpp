#include <ace/Time_Value.h>
#include <qovpub/qov_request.h>
#include <qovpub/qov_task.h>
#include <qovpub/qov_task_mgr.h>
#include <qovpub/qov_utility.h>

#include <cerrno>
#include <utility>

#include "task/later_answer.h"
#include "task/send_cause.h"

namespace {

/// A time-out as send() takes it.
class Limit {
 public:
  explicit Limit(const QOVRequest::Duration* timeout)
      : limited_(timeout != nullptr),
        span_(timeout != nullptr ? *timeout : QOVRequest::Duration::zero()) {}

  ACE_Time_Value* get() { return limited_ ? &span_ : nullptr; }

 private:
  const bool limited_;
  ACE_Time_Value span_;
};

}  // namespace

const char* QOV_TextOf(QOVReason reason) noexcept {
  switch (reason) {
    case QOVReason::kNone:
      return "answered";
    case QOVReason::kTimedOut:
      return "no answer came in time";
    case QOVReason::kRefused:
      return "the receiver answered with a failure";
    case QOVReason::kNoReceiver:
      return "no such module runs";
    case QOVReason::kNoRoom:
      return "there is no room for more messages";
    case QOVReason::kStopped:
      return "a module stops";
    case QOVReason::kNoMemory:
      return "no memory";
    case QOVReason::kBusy:
      return "another thread of the task waits for an answer";
    case QOVReason::kInvalid:
      return "the message was sent before, or is none";
  }
  return "unknown";
}

QOVRequest::QOVRequest(CQOV_Task& sender, std::uint8_t module, std::uint64_t opc)
    : QOVRequest(sender, module, opc, std::make_unique<CQOV_MsgPackage>()) {}

QOVRequest::QOVRequest(CQOV_Task& sender, std::uint8_t module, std::uint64_t opc,
                       std::unique_ptr<CQOV_MsgPackage> message)
    : sender_(sender), message_(std::move(message)) {
  // Addresses are one byte wide.
  const auto process = static_cast<std::uint8_t>(QOV_Utility::getProcPID());
  QOVMsgHead& head = message_->head();
  head.spid_ = process;
  head.smid_ = static_cast<std::uint8_t>(sender.taskMgr()->moduleId());
  head.rpid_ = process;
  head.rmid_ = module;
  head.opc_ = opc;
}

QOVAnswer QOVRequest::ask(Duration timeout) {
  if (timeout <= Duration::zero()) {
    return QOVAnswer(QOVReason::kTimedOut);
  }
  return askWithin(&timeout);
}

QOVAnswer QOVRequest::ask() {
  return askWithin(nullptr);
}

QOVAnswer QOVRequest::askWithin(const Duration* timeout) {
  if (message_ != nullptr) {
    message_->head().type_ = QOVMsgHead::kRequest;
  }
  CQOV_MsgPackage* response = nullptr;
  const int result = sender_.send(message_.release(), response, Limit(timeout).get(), true);
  if (result == 0) {
    return QOVAnswer(std::unique_ptr<CQOV_MsgPackage>(response));
  }
  return result > 0 ? QOVAnswer(QOVReason::kRefused, static_cast<std::uint8_t>(result))
                    : QOVAnswer(qov::reasonOf(errno));
}

QOVReason QOVRequest::askLater(Duration timeout, Continuation continuation) {
  if (timeout <= Duration::zero()) {
    return QOVReason::kTimedOut;
  }
  if (message_ == nullptr || !continuation) {
    return QOVReason::kInvalid;
  }
  message_->head().type_ = QOVMsgHead::kRequest;
  return qov::LaterAnswer::ask(sender_, std::move(message_), ACE_Time_Value(timeout),
                               std::move(continuation));
}

QOVReason QOVRequest::tell(QOVMsgHead::Type type) {
  return tellWithin(nullptr, type);
}

QOVReason QOVRequest::tell(Duration timeout, QOVMsgHead::Type type) {
  return tellWithin(&timeout, type);
}

QOVReason QOVRequest::tellWithin(const Duration* timeout, QOVMsgHead::Type type) {
  if (message_ != nullptr) {
    message_->head().type_ = type;
  }
  return sender_.send(message_.release(), Limit(timeout).get(), true) == 0 ? QOVReason::kNone
                                                                           : qov::reasonOf(errno);
}
