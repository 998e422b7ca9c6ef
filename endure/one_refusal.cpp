#include "endure/one_refusal.h"

#include <ace/ACE.h>
#include <dlfcn.h>
#include <execinfo.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

std::atomic<bool> counting{false};
std::atomic<long> counted{0};
long refused = 0;
int trace = -1;
thread_local int exemptions = 0;

void tellCallers() {
  void* callers[32];
  const int depth = ::backtrace(callers, 32);
  ::backtrace_symbols_fd(callers, depth, trace);
}

/// Null if it is the one.
void* allocate(std::size_t size) {
  if (counting && exemptions == 0 && ++counted == refused) {
    tellCallers();
    return nullptr;
  }
  return std::malloc(size == 0 ? 1 : size);
}

/// Whether `code` is in the library of ACE.
bool isAce(void* code) {
  static const void* const ace = [] {
    dl_find_object object;
    return ::_dl_find_object(reinterpret_cast<void*>(&ACE::compiler_name), &object) == 0
               ? object.dlfo_map_start
               : nullptr;
  }();
  dl_find_object object;
  return ::_dl_find_object(code, &object) == 0 && object.dlfo_map_start == ace;
}

void* allocateOrGiveNull(std::size_t size, void* caller) {
  return counting && isAce(caller) ? std::malloc(size == 0 ? 1 : size) : allocate(size);
}

void* allocateOrThrow(std::size_t size) {
  void* const memory = allocate(size);
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
  return allocateOrGiveNull(size, __builtin_return_address(0));
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return allocateOrGiveNull(size, __builtin_return_address(0));
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
void operator delete(void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
  std::free(memory);
}

namespace qov::endure {

void OneRefusal::begin(long number, int traceTo) {
  // The first one loads a library.
  void* caller = nullptr;
  ::backtrace(&caller, 1);
  refused = number;
  trace = traceTo;
  counted = 0;
  counting = true;
}

long OneRefusal::end() {
  counting = false;
  return counted;
}

OneRefusal::Exempt::Exempt() {
  ++exemptions;
}

OneRefusal::Exempt::~Exempt() {
  --exemptions;
}

}  // namespace qov::endure
