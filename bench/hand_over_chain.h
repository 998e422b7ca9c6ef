#ifndef QOV_BENCH_HAND_OVER_CHAIN_H
#define QOV_BENCH_HAND_OVER_CHAIN_H

#include <array>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

/// A queue between threads as one writes it in ten lines.
template <class T>
class PlainQueue {
 public:
  void push(T item) {
    const std::lock_guard<std::mutex> lock(mutex_);
    items_.push_back(item);
    filled_.notify_one();
  }

  T pop() {
    std::unique_lock<std::mutex> lock(mutex_);
    filled_.wait(lock, [this] { return !items_.empty(); });
    T item = items_.front();
    items_.pop_front();
    return item;
  }

 private:
  std::mutex mutex_;
  std::condition_variable filled_;
  std::deque<T> items_;
};

/// What a synchronous request between two modules is made of, and nothing else: seven hand-overs
/// through queues, from the requester through six threads and back to it.
class HandOverChain {
 public:
  struct Message {
    PlainQueue<Message*> reply_;
  };

  HandOverChain() {
    for (std::size_t i = 0; i < kStages; ++i) {
      threads_[i] = std::thread([this, i] { pass(i); });
    }
  }

  ~HandOverChain() {
    queues_[0].push(nullptr);
    for (std::thread& thread : threads_) {
      thread.join();
    }
  }

  HandOverChain(const HandOverChain&) = delete;
  HandOverChain& operator=(const HandOverChain&) = delete;

  /// Sends `message` round and waits until it is back.
  void request(Message& message) {
    queues_[0].push(&message);
    message.reply_.pop();
  }

 private:
  static constexpr std::size_t kStages = 6;

  void pass(std::size_t stage) {
    for (;;) {
      Message* const message = queues_[stage].pop();
      if (stage + 1 < kStages) {
        queues_[stage + 1].push(message);
      } else if (message != nullptr) {
        message->reply_.push(message);
      }
      if (message == nullptr) {
        return;
      }
    }
  }

  std::array<PlainQueue<Message*>, kStages> queues_;
  std::array<std::thread, kStages> threads_;
};

#endif
