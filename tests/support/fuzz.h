#ifndef QOV_TESTS_SUPPORT_FUZZ_H
#define QOV_TESTS_SUPPORT_FUZZ_H

#include <ace/Log_Msg.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

/// What a fuzz target has: libFuzzer, or tests/support/replay.cpp, calls it with each input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace qov::test {

/// Ends the program, which makes the input a find, unless `holds`. `what` says what has to hold.
inline void require(bool holds, const char* what, const char* file = __builtin_FILE(),
                    int line = __builtin_LINE()) {
  if (!holds) {
    std::fprintf(stderr, "%s:%d: this does not hold: %s\n", file, line, what);
    std::abort();
  }
}

/// Nothing is logged from now on: most of the time would go into it.
inline void silence() {
  ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::PROCESS);
  ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::THREAD);
}

inline std::string textOf(const std::uint8_t* data, std::size_t size) {
  return {data, data + size};
}

/// Takes the first line off `text`, and gives it without its end.
inline std::string takeLine(std::string& text) {
  const std::size_t end = std::min(text.find('\n'), text.size());
  std::string line = text.substr(0, end);
  text.erase(0, end + 1);
  return line;
}

/// A file with that content, for what reads files by name.
class MemoryFile {
 public:
  explicit MemoryFile(std::string_view content)
      : descriptor_(::memfd_create("input", MFD_CLOEXEC)) {
    require(::write(descriptor_, content.data(), content.size()) ==
                static_cast<ssize_t>(content.size()),
            "a file in memory takes the input");
  }
  ~MemoryFile() { ::close(descriptor_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
  const int descriptor_;
};

}  // namespace qov::test

#endif
