#ifndef QOV_TESTS_SUPPORT_FUZZ_H
#define QOV_TESTS_SUPPORT_FUZZ_H

#include <ace/Log_Msg.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

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

/// Nothing is logged from the first call on: most of the time would go into it.
inline void silence() {
  [[maybe_unused]] static const bool done = [] {
    ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::PROCESS);
    ACE_LOG_MSG->priority_mask(0, ACE_Log_Msg::THREAD);
    return true;
  }();
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

}  // namespace qov::test

#endif
