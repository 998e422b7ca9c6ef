#ifndef QOV_TESTS_SUPPORT_FAILING_NEW_H
#define QOV_TESTS_SUPPORT_FAILING_NEW_H

#include <cstddef>

namespace qov::test {

/// While it lives, `new (std::nothrow)` of one object (or of one array) of exactly `size` bytes on
/// this thread gives null. The program must be linked with failing_new.cpp, which replaces these
/// operators.
class FailingNew {
 public:
  enum Kind { kObject, kArray };

  explicit FailingNew(std::size_t size, Kind kind = kObject);
  ~FailingNew();

  FailingNew(const FailingNew&) = delete;
  FailingNew& operator=(const FailingNew&) = delete;

  /// How often it has given null.
  int failures() const;
};

}  // namespace qov::test

#endif
