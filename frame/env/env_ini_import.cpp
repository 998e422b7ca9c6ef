#include "frame/env/env_ini_import.h"

#include <ace/Configuration.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <vector>

namespace qov {
namespace {

// ACE reads as much at once; the rest of a longer line is a line of its own to it.
constexpr std::size_t kBufferOfAce = 4096;

// What ACE's import answers.
constexpr int kNoSuchLine = -3;
constexpr int kNoSuchValue = -4;
// What it must not see.
constexpr int kNotForAce = -5;

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, CloseFile>;

bool aceMayRead(const char* line) {
  if (*line == '\0') {
    return false;
  }
  while (std::isspace(static_cast<unsigned char>(*line)) != 0) {
    ++line;
  }
  return *line != '=';
}

/// Empty for a regular file. Nothing else is opened: a pipe would wait for its writer.
std::string whyNoRegularFile(const std::string& fileName) {
  struct stat status {};
  if (::stat(fileName.c_str(), &status) != 0) {
    return errnoText(errno);
  }
  if (S_ISDIR(status.st_mode)) {
    return "it is a directory";
  }
  return S_ISREG(status.st_mode) ? "" : "it is no regular file";
}

bool aceMayReadAll(const std::string& fileName) {
  const FilePtr file(std::fopen(fileName.c_str(), "re"));
  std::array<char, kBufferOfAce> line;
  while (file != nullptr &&
         std::fgets(line.data(), static_cast<int>(line.size()), file.get()) != nullptr) {
    if (!aceMayRead(line.data())) {
      return false;
    }
  }
  return true;
}

int resultOfImport(ACE_Ini_ImpExp& importer, const std::string& fileName) {
  return aceMayReadAll(fileName) ? importer.import_config(fileName.c_str()) : kNotForAce;
}

std::string contentOf(std::FILE& file) {
  std::string text;
  std::array<char, kBufferOfAce> part;
  for (std::size_t size = part.size(); size == part.size();) {
    size = std::fread(part.data(), 1, part.size(), &file);
    text.append(part.data(), size);
  }
  return text;
}

std::string whatIsWrong(int result, const std::string& line) {
  if (line.compare(0, 3, "\xEF\xBB\xBF") == 0) {
    return "the file begins with a byte order mark";
  }
  switch (result) {
    case kNoSuchLine:
      return "neither [section] nor key=value nor a comment";
    case kNoSuchValue:
      return "a value outside of a section, or a key that cannot be one";
    case kNotForAce:
      return "begins with \"=\" or a zero byte";
    default:
      return {};
  }
}

/// ACE does not tell the line, so the shortest beginning of whole lines is looked for that it
/// refuses.
void findFaultyLine(const std::string& text, Failure& failure) {
  const auto resultUpTo = [&](std::size_t end) {
    ACE_Configuration_Heap heap;
    return importIniText(heap, text.substr(0, end));
  };
  if (resultUpTo(text.size()) == 0) {
    return;
  }
  std::vector<std::size_t> ends;
  for (std::size_t start = 0; start < text.size(); start = ends.back()) {
    const std::size_t end = text.find('\n', start);
    ends.push_back(end == std::string::npos ? text.size() : end + 1);
  }
  const auto faulty = std::partition_point(ends.begin(), ends.end(),
                                           [&](std::size_t end) { return resultUpTo(end) == 0; });
  const std::size_t start = faulty == ends.begin() ? 0 : *(faulty - 1);
  failure.line = static_cast<unsigned>(faulty - ends.begin()) + 1;
  failure.cause = whatIsWrong(resultUpTo(*faulty), text.substr(start, *faulty - start));
}

/// A file without a name.
class TextFile {
 public:
  explicit TextFile(const std::string& text)
      : descriptor_(::memfd_create("ini", MFD_CLOEXEC)),
        isWhole_(::write(descriptor_, text.data(), text.size()) ==
                 static_cast<ssize_t>(text.size())) {}
  ~TextFile() { ::close(descriptor_); }
  TextFile(const TextFile&) = delete;
  TextFile& operator=(const TextFile&) = delete;

  bool isWhole() const { return isWhole_; }
  std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
  const int descriptor_;
  const bool isWhole_;
};

}  // namespace

int importIniText(ACE_Configuration_Heap& heap, const std::string& text) {
  const TextFile file(text);
  if (!file.isWhole() || heap.open() != 0) {
    return 0;
  }
  ACE_Ini_ImpExp importer(heap);
  return resultOfImport(importer, file.path());
}

int importIniFile(ACE_Ini_ImpExp& importer, const std::string& fileName) {
  struct stat status {};
  if (::stat(fileName.c_str(), &status) != 0) {
    return -1;
  }
  const int result = S_ISREG(status.st_mode) ? resultOfImport(importer, fileName) : kNotForAce;
  if (result == kNotForAce) {
    errno = EINVAL;
  }
  return result == 0 ? 0 : -1;
}

Failure whyNoIniFile(const std::string& fileName) {
  Failure failure{"read the configuration", fileName, 0, {}, whyNoRegularFile(fileName)};
  if (!failure.cause.empty()) {
    return failure;
  }
  const FilePtr file(std::fopen(fileName.c_str(), "re"));
  if (file == nullptr) {
    failure.cause = errnoText(errno);
  } else {
    findFaultyLine(contentOf(*file), failure);
  }
  return failure;
}

}  // namespace qov
