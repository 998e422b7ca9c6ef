#ifndef QOV_TESTS_SUPPORT_LATCH_H
#define QOV_TESTS_SUPPORT_LATCH_H

#include <chrono>
#include <condition_variable>
#include <mutex>

/// A counter that threads wait for, with patience instead of sleeps.
class Latch {
 public:
  void count() {
    const std::lock_guard<std::mutex> lock(mutex_);
    ++count_;
    changed_.notify_all();
  }

  /// True once count() has been called `times` times in all.
  bool waitFor(int times = 1, std::chrono::milliseconds patience = std::chrono::seconds(60)) {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, patience, [&] { return count_ >= times; });
  }

  int counted() {
    const std::lock_guard<std::mutex> lock(mutex_);
    return count_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int count_ = 0;
};

#endif
