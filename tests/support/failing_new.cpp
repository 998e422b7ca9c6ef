#include "tests/support/failing_new.h"

#include <new>

using qov::test::FailingNew;

namespace {

thread_local std::size_t failingSize = 0;
thread_local FailingNew::Kind failingKind = FailingNew::kObject;
thread_local int failureCount = 0;

bool fails(std::size_t size, FailingNew::Kind kind) {
  if (size != failingSize || size == 0 || kind != failingKind) {
    return false;
  }
  ++failureCount;
  return true;
}

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return fails(size, FailingNew::kObject) ? nullptr : ::operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return fails(size, FailingNew::kArray) ? nullptr : ::operator new[](size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

namespace qov::test {

FailingNew::FailingNew(std::size_t size, Kind kind) {
  failingSize = size;
  failingKind = kind;
  failureCount = 0;
}

FailingNew::~FailingNew() {
  failingSize = 0;
}

int FailingNew::failures() const {
  return failureCount;
}

}  // namespace qov::test
