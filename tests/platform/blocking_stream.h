#ifndef QOV_TESTS_PLATFORM_BLOCKING_STREAM_H
#define QOV_TESTS_PLATFORM_BLOCKING_STREAM_H

#include <condition_variable>
#include <mutex>
#include <ostream>
#include <streambuf>

namespace qov::test {

/// A log that takes nothing: whoever writes to it is held up for good. Make it with new and leave
/// it: a thread may still be in it when the process ends.
class BlockingStream : private std::streambuf {
 public:
  BlockingStream() : stream_(this) {}

  std::ostream& stream() { return stream_; }
  /// Waits until somebody is held up; false if nobody is within a generous time.
  bool waitForWriter();

 private:
  int_type overflow(int_type c) override;
  std::streamsize xsputn(const char* text, std::streamsize length) override;
  [[noreturn]] void holdUp();

  std::mutex lock_;
  std::condition_variable changed_;
  bool writerIsIn_ = false;
  std::ostream stream_;
};

}  // namespace qov::test

#endif
