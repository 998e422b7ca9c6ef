#include "task/running_handlers.h"

#include <algorithm>

namespace qov {

namespace {

constexpr std::chrono::hours kLongest(100 * 365 * 24);

}  // namespace

RunningHandlers::Entry::Entry(RunningHandlers& all, const RunningHandler& handler)
    : all_(all), handler_(handler), isNoted_(all.hasLimit()) {
  if (isNoted_) {
    all_.add(*this);
  }
}

RunningHandlers::Entry::~Entry() {
  if (isNoted_) {
    all_.remove(*this);
  }
}

void RunningHandlers::limit(Duration limit) {
  limit_ = std::clamp<Duration>(limit, Duration::zero(), kLongest);
  changed_ = true;
}

void RunningHandlers::add(Entry& entry) {
  const std::lock_guard<std::mutex> lock(mutex_);
  // Of two that begin at once the later one may come first.
  Entry* older = newest_;
  while (older != nullptr && older->handler_.begin_ > entry.handler_.begin_) {
    older = older->older_;
  }
  Entry*& link = older != nullptr ? older->newer_ : oldest_;
  entry.older_ = older;
  entry.newer_ = link;
  (link != nullptr ? link->older_ : newest_) = &entry;
  link = &entry;
}

void RunningHandlers::remove(Entry& entry) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!entry.isTold_) {
    unlink(entry);
  }
}

void RunningHandlers::unlink(Entry& entry) {
  (entry.older_ != nullptr ? entry.older_->newer_ : oldest_) = entry.newer_;
  (entry.newer_ != nullptr ? entry.newer_->older_ : newest_) = entry.older_;
}

std::optional<RunningHandler> RunningHandlers::takeLate(Clock::time_point now) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!hasLimit() || oldest_ == nullptr || now - oldest_->handler_.begin_ <= limit()) {
    return std::nullopt;
  }
  Entry& late = *oldest_;
  unlink(late);
  late.isTold_ = true;
  return late.handler_;
}

RunningHandlers::Clock::time_point RunningHandlers::nextLate(Clock::time_point now) {
  const std::lock_guard<std::mutex> lock(mutex_);
  return (oldest_ != nullptr ? oldest_->handler_.begin_ : now) + limit();
}

}  // namespace qov
