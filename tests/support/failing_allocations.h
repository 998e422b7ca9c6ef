#ifndef QOV_TESTS_SUPPORT_FAILING_ALLOCATIONS_H
#define QOV_TESTS_SUPPORT_FAILING_ALLOCATIONS_H

#include <cstddef>
#include <functional>

namespace qov::test {

/// How often the calling thread has allocated.
long allocations();

/// How many bytes of memory the calling thread has allocated and not released.
long heldBytes();

/// Lets the calling thread's allocations succeed `count` times and fail from then on, `failures`
/// times if that is given, until it goes out of scope. A program with failing_allocations.cpp has
/// its own operators new.
class FailingAllocations {
 public:
  explicit FailingAllocations(long count, long failures = kAllFurther);

  /// Counts, and fails, the allocations of exactly `size` bytes only; one if nothing else is said.
  static FailingAllocations ofSize(std::size_t size, long count = 0, long failures = 1);

  /// Leaves alone the allocations that give null instead of throwing: some places in ACE do not
  /// look at what they were given.
  static FailingAllocations ofThoseThatThrow(long count, long failures = kAllFurther);

  /// Fails the single objects of exactly `size` bytes whose allocation gives null.
  static FailingAllocations ofObjectsThatGiveNull(std::size_t size);
  /// As above, for arrays.
  static FailingAllocations ofArraysThatGiveNull(std::size_t size);

  ~FailingAllocations();
  FailingAllocations(const FailingAllocations&) = delete;
  FailingAllocations& operator=(const FailingAllocations&) = delete;

  /// Whether an allocation has been refused.
  bool hasFailed() const;

 private:
  static constexpr long kAllFurther = -1;

  FailingAllocations(std::size_t size, long count, long failures, int forms);
};

/// While it lives, `hook` is called before this thread's next allocation of exactly `size` bytes,
/// which then goes on.
class BeforeAllocation {
 public:
  BeforeAllocation(std::size_t size, std::function<void()> hook);
  ~BeforeAllocation();
  BeforeAllocation(const BeforeAllocation&) = delete;
  BeforeAllocation& operator=(const BeforeAllocation&) = delete;
};

}  // namespace qov::test

#endif
