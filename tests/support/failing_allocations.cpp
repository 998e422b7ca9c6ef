#include "tests/support/failing_allocations.h"

#include <cstdlib>
#include <new>

namespace {

struct Plan {
  bool active = false;
  std::size_t size = 0;  // 0: any
  long allocationsLeft = 0;
  long failuresLeft = 0;
  bool throwingOnly = false;
  bool refused = false;
};
thread_local Plan plan;

/// Whether the plan refuses this allocation.
bool refuses(std::size_t size) noexcept {
  if (!plan.active || plan.failuresLeft == 0 || (plan.size != 0 && plan.size != size)) {
    return false;
  }
  if (plan.allocationsLeft > 0) {
    --plan.allocationsLeft;
    return false;
  }
  if (plan.failuresLeft > 0) {
    --plan.failuresLeft;
  }
  plan.refused = true;
  return true;
}

void* allocate(std::size_t size) noexcept {
  return refuses(size) ? nullptr : std::malloc(size == 0 ? 1 : size);
}

void* allocateOrNull(std::size_t size) noexcept {
  return plan.active && plan.throwingOnly ? std::malloc(size == 0 ? 1 : size) : allocate(size);
}

void* allocateOrThrow(std::size_t size) {
  void* memory = allocate(size);
  if (memory == nullptr) {
    throw std::bad_alloc();
  }
  return memory;
}

}  // namespace

void* operator new(std::size_t size) {
  return allocateOrThrow(size);
}
void* operator new[](std::size_t size) {
  return allocateOrThrow(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return allocateOrNull(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return allocateOrNull(size);
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete[](void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}
// What a constructor that throws gives back.
void operator delete(void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}

namespace qov::test {

FailingAllocations::FailingAllocations(long count, long failures)
    : FailingAllocations(0, count, failures) {}

FailingAllocations::FailingAllocations(std::size_t size, long count, long failures,
                                       bool throwingOnly) {
  plan = {true, size, count, failures, throwingOnly, false};
}

FailingAllocations FailingAllocations::ofSize(std::size_t size, long count, long failures) {
  return {size, count, failures};
}

FailingAllocations FailingAllocations::ofThoseThatThrow(long count) {
  return {0, count, kAllFurther, true};
}

FailingAllocations::~FailingAllocations() {
  plan.active = false;
}

bool FailingAllocations::hasFailed() const {
  return plan.refused;
}

}  // namespace qov::test
