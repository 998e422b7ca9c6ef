#include "tests/support/failing_new.h"

#include <new>

namespace {

thread_local std::size_t failingSize = 0;
thread_local int failureCount = 0;

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (size == failingSize && size != 0) {
    ++failureCount;
    return nullptr;
  }
  try {
    return ::operator new(size);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

namespace qov::test {

FailingNew::FailingNew(std::size_t size) {
  failingSize = size;
  failureCount = 0;
}

FailingNew::~FailingNew() {
  failingSize = 0;
}

int FailingNew::failures() const {
  return failureCount;
}

}  // namespace qov::test
