#include "task/running_handlers.h"

#include <algorithm>
#include <new>
#include <utility>

#include "task/activity_switch.h"
#include "task/age_list_copy.h"
#include "task/handler_times.h"

namespace qov {

namespace {

constexpr std::chrono::hours kLongest(100 * 365 * 24);

bool isContinuation(const RunningHandler& handler) {
  return handler.message_.type_ == QOVMsgHead::kResponse;
}

}  // namespace

RunningHandlers::Entry::Entry(RunningHandlers& all, const RunningHandler& handler)
    : all_(all),
      handler_(handler),
      hasLimit_(all.hasLimit()),
      isWatched_(ActivitySwitch::isOn()),
      thread_(isNoted() ? threadHere() : 0) {
  if (isNoted()) {
    all_.add(*this);
  }
}

RunningHandlers::Entry::~Entry() {
  if (isNoted()) {
    all_.remove(*this);
  }
}

RunningHandlers::RunningHandlers() = default;
RunningHandlers::~RunningHandlers() = default;

void RunningHandlers::limit(Duration limit) {
  limit_ = std::clamp<Duration>(limit, Duration::zero(), kLongest);
  changed_ = true;
}

void RunningHandlers::add(Entry& entry) {
  bool wakes = false;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    entries_.add(entry);
    wakes = entry.hasLimit_ && std::exchange(isUnwatched_, false);
  }
  if (wakes) {
    changed_ = true;
    wake_();
  }
}

void RunningHandlers::remove(Entry& entry) noexcept {
  HandlerTimes* kept = nullptr;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    entries_.remove(entry);
    kept = entry.isWatched_ ? times() : nullptr;
  }
  if (kept != nullptr) {
    kept->add(entry.handler_.message_.opc_, isContinuation(entry.handler_),
              static_cast<std::uint64_t>(entry.took_.count()));
  }
}

HandlerTimes* RunningHandlers::times() noexcept {
  if (times_ == nullptr) {
    try {
      times_ = std::make_unique<HandlerTimes>();
    } catch (const std::bad_alloc&) {
      return nullptr;
    }
  }
  return times_.get();
}

RunningHandlers::Entry* RunningHandlers::oldestUntold() const {
  Entry* entry = entries_.oldest();
  while (entry != nullptr && (!entry->hasLimit_ || entry->isTold_)) {
    entry = entry->newer();
  }
  return entry;
}

std::optional<RunningHandler> RunningHandlers::takeLate(Clock::time_point now) {
  const std::lock_guard<std::mutex> lock(mutex_);
  Entry* const oldest = oldestUntold();
  if (!hasLimit() || oldest == nullptr || now - oldest->begin() <= limit()) {
    return std::nullopt;
  }
  oldest->isTold_ = true;
  return oldest->handler_;
}

std::optional<RunningHandlers::Clock::time_point> RunningHandlers::nextLate() {
  const std::lock_guard<std::mutex> lock(mutex_);
  const Entry* const oldest = oldestUntold();
  isUnwatched_ = oldest == nullptr;
  return isUnwatched_ ? std::nullopt : std::optional(oldest->begin() + limit());
}

void RunningHandlers::list(unsigned int moduleId, std::vector<QOVRunningHandler>& handlers) const {
  const Clock::time_point now = Clock::now();
  copyAll(mutex_, entries_, handlers, [&](const Entry& entry) {
    const RunningHandler& handler = entry.handler_;
    QOVRunningHandler told;
    told.moduleId_ = moduleId;
    told.thread_ = entry.thread_;
    told.opc_ = handler.message_.opc_;
    told.sn_ = handler.message_.sn_;
    told.senderProcess_ = handler.message_.spid_;
    told.sender_ = handler.message_.smid_;
    told.continuation_ = isContinuation(handler);
    told.running_ = std::max(now - handler.begin_, Clock::duration::zero());
    return told;
  });
}

void RunningHandlers::listTimes(unsigned int moduleId, std::vector<QOVHandlerTimes>& times) const {
  const HandlerTimes* kept = nullptr;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    kept = times_.get();
  }
  if (kept != nullptr) {
    kept->list(moduleId, times);
  }
}

}  // namespace qov
