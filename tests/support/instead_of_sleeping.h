#ifndef QOV_TESTS_SUPPORT_INSTEAD_OF_SLEEPING_H
#define QOV_TESTS_SUPPORT_INSTEAD_OF_SLEEPING_H

#include <chrono>
#include <functional>

namespace qov::test {

// A program with instead_of_sleeping.cpp has its own nanosleep().

/// While it lives, the calling thread does not sleep: `hook` is called with how long it would have
/// slept, and says how much of that a signal has left over.
class InsteadOfSleeping {
 public:
  using Hook = std::function<std::chrono::nanoseconds(std::chrono::nanoseconds)>;

  explicit InsteadOfSleeping(Hook hook);
  ~InsteadOfSleeping();
  InsteadOfSleeping(const InsteadOfSleeping&) = delete;
  InsteadOfSleeping& operator=(const InsteadOfSleeping&) = delete;
};

}  // namespace qov::test

#endif
