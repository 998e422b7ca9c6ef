#ifndef QOV_TESTS_SUPPORT_COUNTED_NEW_H
#define QOV_TESTS_SUPPORT_COUNTED_NEW_H

namespace qov::test {

/// How often the calling thread has allocated. The program must be linked with counted_new.cpp,
/// which replaces the operators new and delete.
long allocations();

/// Which operators new fail.
enum class NewForms { kAll, kThrowing };

/// Lets the calling thread's allocations succeed `granted` times and fail from then on, until it
/// goes out of scope. With `kThrowing` those that would give null are neither counted nor refused:
/// ACE makes all of its own that way, and does not survive each null.
class NoMemory {
 public:
  explicit NoMemory(long granted = 0, NewForms forms = NewForms::kAll);
  ~NoMemory();
  NoMemory(const NoMemory&) = delete;
  NoMemory& operator=(const NoMemory&) = delete;

  /// Whether an allocation has been refused.
  bool hasRefused() const;
};

}  // namespace qov::test

#endif
