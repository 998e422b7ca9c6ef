#include "tests/modules/mqtt/slow_disk.h"

#include <dlfcn.h>
#include <unistd.h>

#include <atomic>

#include "tests/support/process_end.h"

namespace {

std::atomic<bool> isSlow{false};
std::atomic<int> waiting{0};

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

}  // namespace qov::test
