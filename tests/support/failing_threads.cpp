#include "tests/support/failing_threads.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>

namespace {

std::atomic<bool> limited{false};
std::atomic<int> threadsLeft{0};
std::atomic<int> failed{0};

}  // namespace

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*run)(void*), void* argument) noexcept {
  using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
  static const auto next = reinterpret_cast<Create>(::dlsym(RTLD_NEXT, "pthread_create"));
  if (limited && threadsLeft.fetch_sub(1) <= 0) {
    ++failed;
    return EAGAIN;
  }
  return next(thread, attributes, run, argument);
}

namespace qov::test {

FailingThreads::FailingThreads(int count) {
  failed = 0;
  threadsLeft = count;
  limited = true;
}

FailingThreads::~FailingThreads() {
  limited = false;
}

int FailingThreads::failures() const {
  return failed;
}

}  // namespace qov::test
