#include "tests/support/instead_of_sleeping.h"

#include <dlfcn.h>

#include <cerrno>
#include <ctime>
#include <utility>

namespace {

using qov::test::InsteadOfSleeping;
using std::chrono::nanoseconds;

InsteadOfSleeping::Hook& hookOfThread() {
  thread_local InsteadOfSleeping::Hook hook;
  return hook;
}

}  // namespace

extern "C" int nanosleep(const timespec* time, timespec* left) {
  using Sleep = int (*)(const timespec*, timespec*);
  static const auto real = reinterpret_cast<Sleep>(::dlsym(RTLD_NEXT, "nanosleep"));
  if (!hookOfThread()) {
    return real(time, left);
  }
  const nanoseconds rest =
      hookOfThread()(std::chrono::seconds(time->tv_sec) + nanoseconds(time->tv_nsec));
  if (rest.count() == 0) {
    return 0;
  }
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(rest);
  *left = {seconds.count(), (rest - seconds).count()};
  errno = EINTR;
  return -1;
}

namespace qov::test {

InsteadOfSleeping::InsteadOfSleeping(Hook hook) {
  hookOfThread() = std::move(hook);
}

InsteadOfSleeping::~InsteadOfSleeping() {
  hookOfThread() = nullptr;
}

}  // namespace qov::test
