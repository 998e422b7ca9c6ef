#include "task/pending_requests.h"

#include <cassert>
#include <cerrno>
#include <memory>
#include <new>
#include <tuple>
#include <utility>

#include "task/later_answer.h"
#include "task/message_block.h"
#include "task/send_cause.h"
#include "task/task_context.h"

namespace qov {

namespace {

constexpr std::size_t kUsualRequests = 1024;
constexpr long kNoTimer = -1;

}  // namespace

std::size_t PendingRequests::Hash::operator()(const MsgKey& key) const {
  // Serial numbers are the part that differs from one pending request to the next.
  return LLHashFunctor()(key.opc_) * 31 + key.sn_ + key.rpid_ * 7UL + key.rmid_;
}

PendingRequests::PendingRequests(ACE_Reactor& reactor, ACE_Event_Handler& handler,
                                 ModuleCounters& counters)
    : reactor_(reactor), handler_(handler), counters_(counters), requests_(kUsualRequests) {}

bool PendingRequests::add(const MsgKey& key, const TimeoutDesc& sender) {
  Requests::iterator request;
  bool isNew = false;
  try {
    const Request added{key, sender, ModuleCounters::coarseNow(), newest_};
    std::tie(request, isNew) = requests_.try_emplace(key, added);
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return false;
  }
  if (!isNew) {
    errno = EINVAL;
    return false;
  }
  Request*& link = newest_ != nullptr ? newest_->newer_ : oldest_;
  link = newest_ = &request->second;
  if (sender.timeout_ != ACE_Time_Value::zero) {
    newest_->sender_.timerId_ = reactor_.schedule_timer(&handler_, &*request, sender.timeout_);
    if (newest_->sender_.timerId_ == kNoTimer) {
      // Without its timer the sender might wait for good.
      erase(request);
      errno = ENOMEM;
      return false;
    }
  }
  tellCounters();
  return true;
}

void PendingRequests::tellCounters() {
  counters_.pending(requests_.size(),
                    oldest_ != nullptr ? oldest_->since_ : ModuleCounters::Clock::time_point());
}

TimeoutDesc PendingRequests::take(const MsgKey& key) {
  const auto request = requests_.find(key);
  return request != requests_.end() ? remove(request) : TimeoutDesc{nullptr, {}, kNoTimer};
}

std::optional<PendingRequests::Wait> PendingRequests::waitOf(const CQOV_Task& task) const {
  for (const Request* request = oldest_; request != nullptr; request = request->newer_) {
    if (request->sender_.task_ == &task) {
      return Wait{request->key_, request->since_};
    }
  }
  return std::nullopt;
}

void PendingRequests::drop(const MsgKey& key, int cause) {
  const TimeoutDesc sender = take(key);
  if (sender.task_ == nullptr) {
    wake(sender, cause);
    return;
  }
  TaskContext::of(*sender.task_).cause_ = cause;
  // The queue itself and not wakeup(), so a static task that waits in its response slot is not
  // woken here: kept.
  sender.task_->msg_queue()->pulse();
}

void PendingRequests::timeOut(const void* act) {
  const auto request = requests_.find(static_cast<const Requests::value_type*>(act)->first);
  assert(request != requests_.end());
  request->second.sender_.timerId_ = kNoTimer;
  counters_.timeOut(request->first);
  wake(remove(request), ETIMEDOUT);
}

void PendingRequests::releaseOtherProcesses(std::uint8_t processId) {
  releaseThose([=](const Request& request) { return request.key_.rpid_ != processId; });
}

void PendingRequests::releaseLater(std::uint8_t processId, const std::bitset<256>& ended) {
  releaseThose([&](const Request& request) {
    return request.sender_.later_ != nullptr && request.key_.rpid_ == processId &&
           ended[request.key_.rmid_];
  });
}

void PendingRequests::releaseAll() {
  releaseThose([](const Request&) { return true; });
}

template <class IsChosen>
void PendingRequests::releaseThose(IsChosen isChosen) {
  // The oldest first: its timer is the one that ACE finds first.
  for (const Request* request = oldest_; request != nullptr;) {
    const Request& looked = *std::exchange(request, request->newer_);
    if (isChosen(looked)) {
      wake(remove(requests_.find(looked.key_)), ECONNABORTED);
    }
  }
}

void PendingRequests::wake(const TimeoutDesc& sender, int cause) {
  if (sender.later_ != nullptr) {
    sender.later_->end(QOVAnswer(reasonOf(cause)));
  } else if (sender.task_ != nullptr) {
    sender.task_->endWait(cause);
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
  TimeoutDesc sender = request->second.sender_;
  if (sender.timerId_ != kNoTimer) {
    reactor_.cancel_timer(sender.timerId_);
  }
  erase(request);
  tellCounters();
  return sender;
}

void PendingRequests::erase(Requests::const_iterator request) {
  const Request& gone = request->second;
  (gone.older_ != nullptr ? gone.older_->newer_ : oldest_) = gone.newer_;
  (gone.newer_ != nullptr ? gone.newer_->older_ : newest_) = gone.older_;
  requests_.erase(request);
}

}  // namespace qov
