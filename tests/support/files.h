#ifndef QOV_TESTS_SUPPORT_FILES_H
#define QOV_TESTS_SUPPORT_FILES_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace qov::test {

/// A directory of its own, gone with everything in it at the end. Its path has no dot, which would
/// end the process name of a program that runs from there, and it is short enough for a socket.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "qovtestXXXXXX").string();
    constexpr std::size_t kLongest = 70;
    if (name.find('.') != std::string::npos || name.size() > kLongest) {
      name = "/tmp/qovtestXXXXXX";
    }
    if (::mkdtemp(name.data()) == nullptr) {
      throw std::runtime_error("cannot make a temporary directory");
    }
    path_ = name;
  }
  ~TemporaryDirectory() { remove(); }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  /// For a process that is left by another way than by destructors.
  void remove() const {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  const std::filesystem::path& path() const { return path_; }
  std::string file(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

inline void writeFile(const std::filesystem::path& file, const std::string& content) {
  std::filesystem::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary) << content;
}

inline std::string readFile(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  std::ostringstream content;
  content << stream.rdbuf();
  return content.str();
}

}  // namespace qov::test

#endif
