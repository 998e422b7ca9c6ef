#ifndef QOV_TESTS_TOOLS_FUZZ_CAPTURED_STREAM_H
#define QOV_TESTS_TOOLS_FUZZ_CAPTURED_STREAM_H

#include <cstdio>
#include <cstdlib>
#include <string>

namespace qov::test {

/// While it lives, what is written to the stream is kept in memory.
class CapturedStream {
 public:
  explicit CapturedStream(std::FILE*& stream) : stream_(stream), before_(stream) {
    stream_ = ::open_memstream(&text_, &size_);
  }
  ~CapturedStream() {
    std::fclose(stream_);
    std::free(text_);
    stream_ = before_;
  }
  CapturedStream(const CapturedStream&) = delete;
  CapturedStream& operator=(const CapturedStream&) = delete;

  std::string text() const {
    std::fflush(stream_);
    return {text_, size_};
  }

 private:
  std::FILE*& stream_;
  std::FILE* const before_;
  char* text_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace qov::test

#endif
