#ifndef QOV_TESTS_LINK_SCRIPTED_WAITS_H
#define QOV_TESTS_LINK_SCRIPTED_WAITS_H

#include <functional>

namespace qov::test {

/// While it lives, `instead` is called for every poll() and every sleeping recv() of its thread,
/// with a function that does the real one, and with the time-out in milliseconds. The program has
/// scripted_waits.cpp.
class InsteadOfWaits {
 public:
  using Wait = std::function<int()>;
  using Script = std::function<int(const Wait& real, int timeout)>;

  explicit InsteadOfWaits(Script instead);
  ~InsteadOfWaits();
  InsteadOfWaits(const InsteadOfWaits&) = delete;
  InsteadOfWaits& operator=(const InsteadOfWaits&) = delete;
};

}  // namespace qov::test

#endif
