#include "task/pending_requests.h"

#include <qovpub/qov_task.h>

#include <cerrno>
#include <memory>
#include <new>

#include "task/message_block.h"

namespace qov {

namespace {

constexpr std::size_t kUsualRequests = 1024;
constexpr long kNoTimer = -1;

}  // namespace

std::size_t PendingRequests::Hash::operator()(const MsgKey& key) const {
  // Serial numbers are the part that differs from one pending request to the next.
  return LLHashFunctor()(key.opc_) * 31 + key.sn_ + key.rpid_ * 7UL + key.rmid_;
}

PendingRequests::PendingRequests(ACE_Reactor& reactor, ACE_Event_Handler& handler)
    : reactor_(reactor), handler_(handler), requests_(kUsualRequests) {}

bool PendingRequests::add(const MsgKey& key, const TimeoutDesc& sender) {
  try {
    const auto [request, isNew] = requests_.try_emplace(key, sender);
    if (!isNew) {
      errno = EINVAL;
      return false;
    }
    if (sender.timeout_ == ACE_Time_Value::zero) {
      return true;
    }
    request->second.timerId_ = reactor_.schedule_timer(&handler_, &*request, sender.timeout_);
    if (request->second.timerId_ != kNoTimer) {
      return true;
    }
    // Without its timer the sender might wait for good.
    requests_.erase(request);
  } catch (const std::bad_alloc&) {
    // Said below.
  }
  errno = ENOMEM;
  return false;
}

CQOV_Task* PendingRequests::take(const MsgKey& key) {
  const auto request = requests_.find(key);
  return request != requests_.end() ? remove(request).task_ : nullptr;
}

void PendingRequests::drop(const MsgKey& key, int cause) {
  if (CQOV_Task* const sender = take(key)) {
    sender->cause_ = cause;
    // The queue itself and not wakeup(), so a static task that waits in its response slot is not
    // woken here: kept.
    sender->msg_queue()->pulse();
  }
}

void PendingRequests::timeOut(const void* act) {
  const auto request = requests_.find(static_cast<const Requests::value_type*>(act)->first);
  request->second.timerId_ = kNoTimer;
  wake(remove(request), ETIMEDOUT);
}

void PendingRequests::releaseOtherProcesses(std::uint8_t processId) {
  releaseThose([processId](const MsgKey& key) { return key.rpid_ != processId; });
}

void PendingRequests::releaseAll() {
  releaseThose([](const MsgKey&) { return true; });
}

template <class IsChosen>
void PendingRequests::releaseThose(IsChosen isChosen) {
  for (auto next = requests_.cbegin(); next != requests_.cend();) {
    const auto request = next++;
    if (isChosen(request->first)) {
      wake(remove(request), ECONNABORTED);
    }
  }
}

void PendingRequests::wake(const TimeoutDesc& sender, int cause) {
  if (sender.task_ != nullptr) {
    sender.task_->cause_ = cause;
    sender.task_->wakeup();
  }
}

void PendingRequests::wakeSenderOf(ACE_Message_Block& request, int cause) {
  if (!carriesTimeoutDesc(request)) {
    return;
  }
  if (const std::unique_ptr<TimeoutDesc> sender = takeTimeoutDesc(request)) {
    wake(*sender, cause);
  }
}

TimeoutDesc PendingRequests::remove(Requests::const_iterator request) {
  const TimeoutDesc sender = request->second;
  if (sender.timerId_ != kNoTimer) {
    reactor_.cancel_timer(sender.timerId_);
  }
  requests_.erase(request);
  return sender;
}

}  // namespace qov
