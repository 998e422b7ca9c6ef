#include "tools/qov-endpoint/counts.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <sstream>
#include <stdexcept>

namespace qov::endpoint {
namespace {

struct Line {
  const char* name;
  std::uint64_t Counts::*count;
};

constexpr std::array<Line, 7> kLines{{{"connections", &Counts::connections},
                                      {"requests", &Counts::requests},
                                      {"replies", &Counts::replies},
                                      {"rows", &Counts::rows},
                                      {"ends", &Counts::ends},
                                      {"stored", &Counts::stored},
                                      {"refusals", &Counts::refusals}}};

/// As many as the largest number has, so that every number fits where the last one stood.
constexpr std::size_t kDigits = 20;

/// Blanks behind the number, not in front: the second word of a line is then what follows the first
/// blank, for simple readers too.
std::string text(const Counts& counts) {
  std::string all;
  for (const Line& line : kLines) {
    std::string number = std::to_string(counts.*line.count);
    number.resize(kDigits, ' ');
    all += line.name + (' ' + number) + '\n';
  }
  return all;
}

bool parse(const std::string& content, Counts& counts) {
  std::istringstream words(content);
  for (const Line& line : kLines) {
    std::string name;
    std::string number;
    words >> name >> number;
    const char* const end = number.data() + number.size();
    const auto parsed = std::from_chars(number.data(), end, counts.*line.count);
    if (name != line.name || parsed.ec != std::errc() || parsed.ptr != end) {
      return false;
    }
  }
  return content.size() == text(counts).size();
}

std::runtime_error failure(const std::string& path, const char* what) {
  return std::runtime_error("counts file " + path + ": " + what);
}

}  // namespace

Counts& Counts::operator+=(const Counts& more) {
  for (const Line& line : kLines) {
    this->*line.count += more.*line.count;
  }
  return *this;
}

CountsFile::CountsFile(const std::string& path)
    : path_(path), descriptor_(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644)) {
  if (descriptor_ < 0) {
    throw failure(path_, std::strerror(errno));
  }
  try {
    read();
    save();
  } catch (...) {
    ::close(descriptor_);
    throw;
  }
}

CountsFile::~CountsFile() {
  if (descriptor_ >= 0) {
    ::close(descriptor_);
  }
}

void CountsFile::read() {
  std::string content(text(counts_).size() + 1, '\0');
  const ssize_t size = ::pread(descriptor_, content.data(), content.size(), 0);
  if (size < 0) {
    throw failure(path_, std::strerror(errno));
  }
  content.resize(static_cast<std::size_t>(size));
  if (!content.empty() && !parse(content, counts_)) {
    throw failure(path_, "holds something else than counts");
  }
}

void CountsFile::save() {
  if (!changed_ || descriptor_ < 0) {
    return;
  }
  const std::string content = text(counts_);
  const ssize_t written = ::pwrite(descriptor_, content.data(), content.size(), 0);
  if (written != static_cast<ssize_t>(content.size())) {
    throw failure(path_, written < 0 ? std::strerror(errno) : "written in part only");
  }
  changed_ = false;
}

}  // namespace qov::endpoint
