#include "tools/common/input.h"

#include <array>
#include <cerrno>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace qov::tools {
namespace {

constexpr std::size_t kMost = std::size_t{256} << 20;

[[noreturn]] void throwError() {
  throw std::runtime_error(std::generic_category().message(errno));
}

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

}  // namespace

std::string readAll(std::FILE* from) {
  std::string content;
  std::array<char, 65536> buffer;
  while (const std::size_t got = std::fread(buffer.data(), 1, buffer.size(), from)) {
    content.append(buffer.data(), got);
    if (content.size() > kMost) {
      throw std::runtime_error("more than 256 MiB");
    }
  }
  if (std::ferror(from) != 0) {
    throwError();
  }
  return content;
}

std::string readFile(const std::string& path) {
  const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path.c_str(), "rb"));
  if (file == nullptr) {
    throwError();
  }
  return readAll(file.get());
}

}  // namespace qov::tools
