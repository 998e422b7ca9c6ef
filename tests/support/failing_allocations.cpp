#include "tests/support/failing_allocations.h"

#include <malloc.h>

#include <cstdlib>
#include <new>
#include <utility>

namespace {

enum Form { kThrowing = 1, kNullObject = 2, kNullArray = 4, kAnyForm = 7 };

struct Plan {
  bool active = false;
  std::size_t size = 0;  // 0: any
  long allocationsLeft = 0;
  long failuresLeft = 0;
  int forms = kAnyForm;
  bool refused = false;
};
thread_local Plan plan;
thread_local long counted = 0;
thread_local long held = 0;

thread_local std::size_t hookedSize = 0;
thread_local std::function<void()> hook;

/// Whether the plan refuses this allocation.
bool refuses(std::size_t size, Form form) noexcept {
  if (!plan.active || plan.failuresLeft == 0 || (plan.size != 0 && plan.size != size) ||
      (plan.forms & form) == 0) {
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

void* allocate(std::size_t size, Form form) {
  ++counted;
  if (hookedSize != 0 && hookedSize == size) {
    hookedSize = 0;
    hook();
  }
  if (refuses(size, form)) {
    return nullptr;
  }
  void* const memory = std::malloc(size == 0 ? 1 : size);
  held += static_cast<long>(::malloc_usable_size(memory));
  return memory;
}

void release(void* memory) {
  held -= static_cast<long>(::malloc_usable_size(memory));
  std::free(memory);
}

void* allocateOrThrow(std::size_t size) {
  void* memory = allocate(size, kThrowing);
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
  return allocate(size, kNullObject);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size, kNullArray);
}
void operator delete(void* memory) noexcept {
  release(memory);
}
void operator delete[](void* memory) noexcept {
  release(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  release(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  release(memory);
}
// What a constructor that throws gives back.
void operator delete(void* memory, const std::nothrow_t&) noexcept {
  release(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
  release(memory);
}

namespace qov::test {

long allocations() {
  return counted;
}

long heldBytes() {
  return held;
}

FailingAllocations::FailingAllocations(long count, long failures)
    : FailingAllocations(0, count, failures, kAnyForm) {}

FailingAllocations::FailingAllocations(std::size_t size, long count, long failures, int forms) {
  plan = {true, size, count, failures, forms, false};
}

FailingAllocations FailingAllocations::ofSize(std::size_t size, long count, long failures) {
  return {size, count, failures, kAnyForm};
}

FailingAllocations FailingAllocations::ofThoseThatThrow(long count, long failures) {
  return {0, count, failures, kThrowing};
}

FailingAllocations FailingAllocations::ofObjectsThatGiveNull(std::size_t size) {
  return {size, 0, kAllFurther, kNullObject};
}

FailingAllocations FailingAllocations::ofArraysThatGiveNull(std::size_t size) {
  return {size, 0, kAllFurther, kNullArray};
}

FailingAllocations::~FailingAllocations() {
  plan.active = false;
}

bool FailingAllocations::hasFailed() const {
  return plan.refused;
}

BeforeAllocation::BeforeAllocation(std::size_t size, std::function<void()> before) {
  hook = std::move(before);
  hookedSize = size;
}

BeforeAllocation::~BeforeAllocation() {
  hookedSize = 0;
  hook = nullptr;
}

}  // namespace qov::test
