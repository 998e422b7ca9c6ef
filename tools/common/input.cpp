#include "tools/common/input.h"

#include <array>
#include <cerrno>
#include <memory>
#include <stdexcept>

#include "frame/failure.h"

namespace qov::tools {
namespace {

constexpr std::size_t kMost = std::size_t{256} << 20;

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
    throw std::runtime_error(errnoText(errno));
  }
  return content;
}

std::string readFile(const std::string& path) {
  const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path.c_str(), "rb"));
  if (file == nullptr) {
    throw std::runtime_error(errnoText(errno));
  }
  return readAll(file.get());
}

}  // namespace qov::tools
