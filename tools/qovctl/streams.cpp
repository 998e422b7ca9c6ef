#include "tools/qovctl/streams.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "tools/qovctl/failure.h"

namespace qov::ctl {
namespace {

/// Far more than any message; a pipe that never ends shall not take all memory.
constexpr std::size_t kMaxInput = std::size_t{256} << 20;

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

[[noreturn]] void fail(const std::string& what, int error) {
  throw Failure(kFailed, what + ": " + std::strerror(error));
}

std::string readAll(std::FILE* from, const std::string& name) {
  std::string content;
  std::array<char, 65536> buffer;
  while (const std::size_t got = std::fread(buffer.data(), 1, buffer.size(), from)) {
    content.append(buffer.data(), got);
    if (content.size() > kMaxInput) {
      throw Failure(kFailed, name + ": more than 256 MiB");
    }
  }
  if (std::ferror(from) != 0) {
    fail(name, errno);
  }
  return content;
}

}  // namespace

void keepStandardStreams() {
  // Opened for the wrong direction on purpose.
  constexpr std::array<int, 3> kModes{O_WRONLY, O_RDONLY, O_RDONLY};
  for (int descriptor = 0; descriptor < static_cast<int>(kModes.size()); ++descriptor) {
    if (::fcntl(descriptor, F_GETFD) == -1) {
      // The lowest free number is this one.
      static_cast<void>(::open("/dev/null", kModes[static_cast<std::size_t>(descriptor)]));
    }
  }
}

std::string readInput(const std::string& file) {
  if (file == "-") {
    return readAll(stdin, "standard input");
  }
  const std::unique_ptr<std::FILE, CloseFile> opened(std::fopen(file.c_str(), "rb"));
  if (opened == nullptr) {
    fail(file, errno);
  }
  return readAll(opened.get(), file);
}

void print(std::string_view text) {
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) {
    fail("cannot write", errno);
  }
}

void finishOutput() {
  if (std::fflush(stdout) != 0) {
    fail("cannot write", errno);
  }
}

}  // namespace qov::ctl
