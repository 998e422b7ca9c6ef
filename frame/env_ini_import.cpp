#include "frame/env_ini_import.h"

#include <sys/stat.h>

#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <memory>

namespace qov {
namespace {

// ACE reads as much at once; the rest of a longer line is a line of its own to it.
constexpr std::size_t kBufferOfAce = 4096;

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

bool aceMayRead(const char* line) {
  if (*line == '\0') {
    return false;
  }
  while (std::isspace(static_cast<unsigned char>(*line)) != 0) {
    ++line;
  }
  return *line != '=';
}

// What is no regular file, such as a pipe, gives its content once only: that is ACE's then.
bool canBeReadTwice(const std::string& fileName) {
  struct stat status {};
  return ::stat(fileName.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool aceMayReadAll(const std::string& fileName) {
  const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(fileName.c_str(), "re"));
  std::array<char, kBufferOfAce> line;
  while (file != nullptr &&
         std::fgets(line.data(), static_cast<int>(line.size()), file.get()) != nullptr) {
    if (!aceMayRead(line.data())) {
      return false;
    }
  }
  return true;
}

}  // namespace

int importIniFile(ACE_Ini_ImpExp& importer, const std::string& fileName) {
  if (canBeReadTwice(fileName) && !aceMayReadAll(fileName)) {
    errno = EINVAL;
    return -1;
  }
  return importer.import_config(fileName.c_str()) == 0 ? 0 : -1;
}

}  // namespace qov
