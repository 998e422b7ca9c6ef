#include <algorithm>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "tools/qov-endpoint/live_tables.h"
#include "tools/qov-endpoint/proc_file.h"

namespace qov::endpoint {
namespace {

bool isOctal(char c) {
  return c >= '0' && c <= '7';
}

/// Blanks, tabs, line ends and backslashes stand in the file as a backslash and three octal digits.
std::string unescaped(const std::string& text) {
  std::string plain;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '\\' && at + 3 < text.size() && isOctal(text[at + 1]) &&
        isOctal(text[at + 2]) && isOctal(text[at + 3])) {
      plain += static_cast<char>(std::stoi(text.substr(at + 1, 3), nullptr, 8));
      at += 3;
    } else {
      plain += text[at];
    }
  }
  return plain;
}

/// At each blank, since a field may be empty.
std::vector<std::string> split(const std::string& line) {
  std::vector<std::string> fields(1);
  for (const char c : line) {
    if (c == ' ') {
      fields.emplace_back();
    } else {
      fields.back() += c;
    }
  }
  return fields;
}

/// One line: id, parent, device numbers, root, mount point, flags, any number of optional fields,
/// a dash, type, device, and what the file system adds.
void readLine(const std::string& line, Rows& rows) {
  constexpr std::size_t kPoint = 4;
  constexpr std::size_t kFlags = 5;
  using Offset = std::vector<std::string>::difference_type;
  const std::vector<std::string> fields = split(line);
  const auto optional = static_cast<Offset>(std::min(kFlags + 1, fields.size()));
  const auto dash = std::find(fields.begin() + optional, fields.end(), "-");
  const std::uint64_t id = std::strtoull(fields[0].c_str(), nullptr, 10);
  if (fields.end() - dash < 3 || id == 0) {
    return;
  }
  const auto [row, fresh] = rows.try_emplace(id);
  if (fresh) {
    row->second.addString(kMountPoint, unescaped(fields[kPoint]));
    row->second.addString(kMountDevice, unescaped(dash[2]));
    row->second.addString(kMountType, unescaped(dash[1]));
    row->second.addString(kMountFlags, fields[kFlags]);
  }
}

}  // namespace

Rows readMounts() {
  Rows rows;
  std::istringstream lines(readProcFile("/proc/self/mountinfo"));
  for (std::string line; std::getline(lines, line);) {
    readLine(line, rows);
  }
  return rows;
}

}  // namespace qov::endpoint
