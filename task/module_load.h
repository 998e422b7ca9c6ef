#ifndef QOV_TASK_MODULE_LOAD_H
#define QOV_TASK_MODULE_LOAD_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>

#include "task/doorbell.h"

namespace qov {

/// How many bytes of blocks wait behind the leader of one module, in the queues of its scheduler
/// and its static tasks, and where senders wait for room.
///
/// Shared by these queues and the leader's; static tasks' queues may outlive the leader.
class ModuleLoad {
 public:
  using Clock = std::chrono::steady_clock;

  void add(std::size_t bytes) { waiting_.fetch_add(bytes); }

  void subtract(std::size_t bytes) {
    waiting_.fetch_sub(bytes);
    roomMayHaveCome();
  }

  std::size_t waiting() const { return waiting_.load(); }

  /// Lets blocked senders look again. Costs one load while there are none.
  void roomMayHaveCome() {
    // The sender counts itself before it looks for room, so either it sees the room or we see it.
    if (senders_.load() > 0) {
      const std::lock_guard<std::mutex> lock(mutex_);
      changed_.notify_all();
    }
  }

  /// Waits until `hasRoom` holds, or until `deadline` (null: without limit); returns hasRoom().
  template <class HasRoom>
  bool waitForRoom(const Clock::time_point* deadline, HasRoom hasRoom) {
    ringCollected();
    const Sender counted(senders_);
    std::unique_lock<std::mutex> lock(mutex_);
    if (deadline != nullptr) {
      return changed_.wait_until(lock, *deadline, hasRoom);
    }
    changed_.wait(lock, hasRoom);
    return true;
  }

 private:
  /// Counts one for as long as it waits, also when its thread is cancelled meanwhile.
  class Sender {
   public:
    explicit Sender(std::atomic<int>& senders) : senders_(senders) { senders_.fetch_add(1); }
    ~Sender() { senders_.fetch_sub(1); }

    Sender(const Sender&) = delete;
    Sender& operator=(const Sender&) = delete;

   private:
    std::atomic<int>& senders_;
  };

  std::atomic<std::size_t> waiting_{0};
  std::atomic<int> senders_{0};
  std::mutex mutex_;
  std::condition_variable changed_;
};

}  // namespace qov

#endif
