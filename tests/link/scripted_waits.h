#ifndef QOV_TESTS_LINK_SCRIPTED_POLL_H
#define QOV_TESTS_LINK_SCRIPTED_POLL_H

#include <functional>

namespace qov::test {

/// While it lives, `instead` is called for every poll() of its thread, with a function that does
/// the real one, and with the time-out. The program has scripted_poll.cpp.
class InsteadOfPoll {
 public:
  using Poll = std::function<int()>;
  using Script = std::function<int(const Poll& real, int timeout)>;

  explicit InsteadOfPoll(Script instead);
  ~InsteadOfPoll();
  InsteadOfPoll(const InsteadOfPoll&) = delete;
  InsteadOfPoll& operator=(const InsteadOfPoll&) = delete;
};

}  // namespace qov::test

#endif
