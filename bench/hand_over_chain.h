#ifndef QOV_BENCH_HAND_OVER_CHAIN_H
#define QOV_BENCH_HAND_OVER_CHAIN_H

#include <array>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

/// A queue between threads as a careful programmer writes it: whoever is woken finds the lock free.
class PlainQueue {
 public:
  void push(std::size_t item) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      items_.push_back(item);
    }
    filled_.notify_one();
  }

  std::size_t pop() {
    std::unique_lock<std::mutex> lock(mutex_);
    filled_.wait(lock, [this] { return !items_.empty(); });
    const std::size_t item = items_.front();
    items_.pop_front();
    return item;
  }

 private:
  std::mutex mutex_;
  std::condition_variable filled_;
  std::deque<std::size_t> items_;
};

/// What a synchronous request between two modules is made of, and nothing else: seven hand-overs
/// through seven queues with one thread behind each, from the requester through six threads and
/// back to it.
///
/// What passes is the requester's number. The queues for the way back belong to the chain, because
/// the last thread still wakes on one whose requester is gone.
class HandOverChain {
 public:
  explicit HandOverChain(std::size_t requesters) : replies_(requesters) {
    for (std::size_t i = 0; i < kStages; ++i) {
      threads_[i] = std::thread([this, i] { pass(i); });
    }
  }

  ~HandOverChain() {
    queues_[0].push(kStop);
    for (std::thread& thread : threads_) {
      thread.join();
    }
  }

  HandOverChain(const HandOverChain&) = delete;
  HandOverChain& operator=(const HandOverChain&) = delete;

  /// Goes round once for `requester`, whose only request this is.
  void request(std::size_t requester) {
    queues_[0].push(requester);
    replies_[requester].pop();
  }

 private:
  static constexpr std::size_t kStages = 6;
  static constexpr std::size_t kStop = ~std::size_t{0};

  void pass(std::size_t stage) {
    std::size_t requester = 0;
    while (requester != kStop) {
      requester = queues_[stage].pop();
      if (stage + 1 < kStages) {
        queues_[stage + 1].push(requester);
      } else if (requester != kStop) {
        replies_[requester].push(requester);
      }
    }
  }

  std::array<PlainQueue, kStages> queues_;
  std::vector<PlainQueue> replies_;
  std::array<std::thread, kStages> threads_;
};

#endif
