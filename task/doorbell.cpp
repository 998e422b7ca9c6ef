#include "task/doorbell.h"

#include <algorithm>
#include <new>

namespace qov {

namespace {

/// So many threads are kept waiting for the sake of the batch, and no more.
constexpr std::size_t kMostCollected = 16;

/// Nor does one wait while so much is put before it: its queue has an end.
constexpr unsigned int kMostRings = 256;

thread_local RingCollector* collector = nullptr;

/// Counts its thread among those that wait.
class Waiting {
 public:
  explicit Waiting(int& count) : count_(count) { ++count_; }
  ~Waiting() { --count_; }

  Waiting(const Waiting&) = delete;
  Waiting& operator=(const Waiting&) = delete;

 private:
  int& count_;
};

}  // namespace

void Doorbell::ring() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ringing_ = true;
    if (waiting_ == 0) {
      return;
    }
  }
  // The lock is free by now, or else the woken thread would run into it.
  rung_.notify_one();
}

bool Doorbell::wait(const std::optional<Clock::time_point>& deadline) {
  ringCollected();
  std::unique_lock<std::mutex> lock(mutex_);
  // Also when the thread is cancelled while it waits.
  const Waiting waiting(waiting_);
  const auto ringing = [this] { return ringing_; };
  bool rung = true;
  if (deadline) {
    rung = rung_.wait_until(lock, *deadline, ringing);
  } else {
    rung_.wait(lock, ringing);
  }
  ringing_ = false;
  return rung;
}

void ring(const std::shared_ptr<Doorbell>& bell) {
  if (collector != nullptr) {
    collector->add(bell);
  } else {
    bell->ring();
  }
}

void ringCollected() {
  if (collector != nullptr) {
    collector->ringAll();
  }
}

RingCollector::RingCollector() {
  try {
    bells_.reserve(kMostCollected);
    collector = this;
  } catch (const std::bad_alloc&) {
    // Nothing is collected then.
  }
}

RingCollector::~RingCollector() {
  ringAll();
  collector = nullptr;
}

void RingCollector::add(const std::shared_ptr<Doorbell>& bell) {
  if (std::find(bells_.begin(), bells_.end(), bell) == bells_.end()) {
    bells_.push_back(bell);
  }
  ++rings_;
  if (bells_.size() == kMostCollected || rings_ == kMostRings) {
    ringAll();
  }
}

void RingCollector::ringAll() {
  for (const std::shared_ptr<Doorbell>& bell : bells_) {
    bell->ring();
  }
  bells_.clear();
  rings_ = 0;
}

}  // namespace qov
