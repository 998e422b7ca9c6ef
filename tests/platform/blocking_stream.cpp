#include "tests/platform/blocking_stream.h"

#include <chrono>

namespace qov::test {

bool BlockingStream::waitForWriter() {
  std::unique_lock<std::mutex> held(lock_);
  return changed_.wait_for(held, std::chrono::seconds(60), [this] { return writerIsIn_; });
}

BlockingStream::int_type BlockingStream::overflow(int_type) {
  holdUp();
}

std::streamsize BlockingStream::xsputn(const char*, std::streamsize) {
  holdUp();
}

void BlockingStream::holdUp() {
  std::unique_lock<std::mutex> held(lock_);
  writerIsIn_ = true;
  changed_.notify_all();
  for (;;) {
    changed_.wait(held);
  }
}

}  // namespace qov::test
