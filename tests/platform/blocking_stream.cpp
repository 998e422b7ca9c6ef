#include "tests/platform/blocking_stream.h"

#include <chrono>
#include <thread>

namespace qov::test {

bool BlockingStream::waitForWriter() {
  std::unique_lock<std::mutex> held(lock_);
  return changed_.wait_for(held, std::chrono::seconds(60), [this] { return writerIsIn_; });
}

void BlockingStream::letGo() {
  const std::lock_guard<std::mutex> held(lock_);
  open_ = true;
  changed_.notify_all();
}

BlockingStream::int_type BlockingStream::overflow(int_type c) {
  holdUp();
  return c;
}

std::streamsize BlockingStream::xsputn(const char*, std::streamsize length) {
  holdUp();
  return length;
}

void BlockingStream::holdUp() {
  std::unique_lock<std::mutex> held(lock_);
  if (open_) {
    return;
  }
  writerIsIn_ = true;
  changed_.notify_all();
  changed_.wait(held, [this] { return open_; });
  held.unlock();
  // Whoever does not wait for the writer has time to go wrong.
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(100);
  while (std::chrono::steady_clock::now() < end) {
    std::this_thread::yield();
  }
}

}  // namespace qov::test
