#include "tests/msg/failing_new.h"

#include <cstdlib>
#include <new>

namespace {

thread_local long allocationsLeft = -1;
thread_local bool refused = false;

void* allocate(std::size_t size) noexcept {
  if (allocationsLeft == 0) {
    refused = true;
    return nullptr;
  }
  if (allocationsLeft > 0) {
    --allocationsLeft;
  }
  return std::malloc(size == 0 ? 1 : size);
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
  return allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size);
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

namespace qov::tests {

FailingNew::FailingNew(long count) {
  allocationsLeft = count;
  refused = false;
}

FailingNew::~FailingNew() {
  allocationsLeft = -1;
}

bool FailingNew::hasFailed() const {
  return refused;
}

}  // namespace qov::tests
