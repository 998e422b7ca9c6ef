#include "tests/support/counted_new.h"

#include <cstdlib>
#include <new>

namespace {

constexpr long kUnlimited = -1;

thread_local long counted = 0;
thread_local long granted = kUnlimited;
thread_local qov::test::NewForms limited = qov::test::NewForms::kAll;
thread_local bool refused = false;

void* allocate(std::size_t size, qov::test::NewForms form) {
  ++counted;
  if (limited == qov::test::NewForms::kThrowing && form != limited) {
    return std::malloc(size);
  }
  if (granted == 0) {
    refused = true;
    return nullptr;
  }
  if (granted > 0) {
    --granted;
  }
  return std::malloc(size);
}

}  // namespace

// The library's calls come here, too. All forms, since the sanitizers' own do not lead from one to
// another; and not inlined, or the compiler sees new meet free().
#define QOV_OWN [[gnu::noinline]]
QOV_OWN void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size, qov::test::NewForms::kAll);
}
QOV_OWN void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size, qov::test::NewForms::kAll);
}
QOV_OWN void* operator new(std::size_t size) {
  if (void* const memory = allocate(size, qov::test::NewForms::kThrowing)) {
    return memory;
  }
  throw std::bad_alloc();
}
QOV_OWN void* operator new[](std::size_t size) {
  return ::operator new(size);
}
QOV_OWN void operator delete(void* memory) noexcept {
  std::free(memory);
}
QOV_OWN void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
QOV_OWN void operator delete(void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}
QOV_OWN void operator delete[](void* memory) noexcept {
  std::free(memory);
}
QOV_OWN void operator delete[](void* memory, std::size_t) noexcept {
  std::free(memory);
}
QOV_OWN void operator delete[](void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}
#undef QOV_OWN

namespace qov::test {

long allocations() {
  return counted;
}

NoMemory::NoMemory(long grantedNow, NewForms forms) {
  granted = grantedNow;
  limited = forms;
  refused = false;
}

NoMemory::~NoMemory() {
  granted = kUnlimited;
}

bool NoMemory::hasRefused() const {
  return refused;
}

}  // namespace qov::test
