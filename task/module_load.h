#ifndef QOV_TASK_MODULE_LOAD_H
#define QOV_TASK_MODULE_LOAD_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>

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
    senders_.fetch_add(1);
    bool room = false;
    {
      std::unique_lock<std::mutex> lock(mutex_);
      if (deadline == nullptr) {
        changed_.wait(lock, hasRoom);
        room = true;
      } else {
        room = changed_.wait_until(lock, *deadline, hasRoom);
      }
    }
    senders_.fetch_sub(1);
    return room;
  }

 private:
  std::atomic<std::size_t> waiting_{0};
  std::atomic<int> senders_{0};
  std::mutex mutex_;
  std::condition_variable changed_;
};

}  // namespace qov

#endif
