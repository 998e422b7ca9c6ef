#ifndef QOV_TESTS_MSG_FAILING_NEW_H
#define QOV_TESTS_MSG_FAILING_NEW_H

namespace qov::tests {

/// Lets the calling thread's allocations succeed `count` times and fail from then on, until it goes
/// out of scope. A program with failing_new.cpp has its own operators new.
class FailingNew {
 public:
  explicit FailingNew(long count);
  ~FailingNew();
  FailingNew(const FailingNew&) = delete;
  FailingNew& operator=(const FailingNew&) = delete;

  /// Whether an allocation has been refused.
  bool hasFailed() const;
};

}  // namespace qov::tests

#endif
