#include "tests/modules/mqtt/slow_disk.h"

#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>

#include "tests/support/process_end.h"

namespace {

std::atomic<bool> isSlow{false};
std::atomic<int> waiting{0};
std::atomic<bool> isUnreadable{false};
std::atomic<int> refused{0};

using Sync = int (*)(int);

int syncWith(Sync next, int descriptor) {
  ++waiting;
  while (isSlow) {
    ::usleep(1000);
  }
  --waiting;
  return next(descriptor);
}

}  // namespace

// In place of the C library's, for SQLite, too.
extern "C" int fsync(int descriptor) {
  static const auto next = reinterpret_cast<Sync>(::dlsym(RTLD_NEXT, "fsync"));
  return syncWith(next, descriptor);
}
extern "C" int fdatasync(int descriptor) {
  static const auto next = reinterpret_cast<Sync>(::dlsym(RTLD_NEXT, "fdatasync"));
  return syncWith(next, descriptor);
}

extern "C" ssize_t pread64(int descriptor, void* to, size_t count, off64_t from) {
  static const auto next = reinterpret_cast<decltype(&pread64)>(::dlsym(RTLD_NEXT, "pread64"));
  if (isUnreadable) {
    ++refused;
    errno = ENODEV;  // EIO would be a damaged database
    return -1;
  }
  return next(descriptor, to, count, from);
}

namespace qov::test {

SlowDisk::SlowDisk() {
  isSlow = true;
}
SlowDisk::~SlowDisk() {
  isSlow = false;
}

bool SlowDisk::isWaitedFor() {
  return waitUntil([] { return waiting > 0; });
}

UnreadableDisk::UnreadableDisk() {
  refused = 0;
  isUnreadable = true;
}
UnreadableDisk::~UnreadableDisk() {
  isUnreadable = false;
}

bool UnreadableDisk::isTried(int times) {
  return waitUntil([=] { return refused >= times; });
}

}  // namespace qov::test
