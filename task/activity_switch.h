#ifndef QOV_TASK_ACTIVITY_SWITCH_H
#define QOV_TASK_ACTIVITY_SWITCH_H

#include <atomic>

namespace qov {

/// Whether somebody wants to know what modules work on and wait for (QOVActivity).
///
/// Thread: any.
class ActivitySwitch {
 public:
  static bool isOn() { return users_.load(std::memory_order_relaxed) != 0; }
  static void on() { users_.fetch_add(1, std::memory_order_relaxed); }
  static void off() { users_.fetch_sub(1, std::memory_order_relaxed); }

 private:
  static inline std::atomic<unsigned int> users_{0};
};

/// The calling thread's gettid().
int threadHere();

}  // namespace qov

#endif
