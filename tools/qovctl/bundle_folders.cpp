#include "tools/qovctl/bundle_folders.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "modules/common/controls.h"
#include "tools/qovctl/agent_parts.h"
#include "tools/qovctl/bundle.h"

namespace qov::ctl {
namespace {

namespace fs = std::filesystem;

std::string kindText(mode_t mode) {
  const char* const kind = S_ISREG(mode)    ? "file"
                           : S_ISDIR(mode)  ? "folder"
                           : S_ISLNK(mode)  ? "link"
                           : S_ISFIFO(mode) ? "pipe"
                           : S_ISSOCK(mode) ? "socket"
                                            : "device";
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%s %04o", kind, static_cast<unsigned>(mode & 07777U));
  return text.data();
}

/// Empty for what is none, or has gone.
std::string targetText(const fs::path& path) {
  std::error_code error;
  const fs::path target = fs::read_symlink(path, error);
  return error ? "" : " -> " + common::withoutControls(target.string());
}

}  // namespace

std::vector<std::string> namesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::string listing(const std::string& folder) {
  std::vector<Row> rows{{"mode", "owner", "bytes", "changed", "name"}};
  for (const std::string& name : namesIn(folder)) {
    const fs::path path = fs::path(folder) / name;
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
      const std::string why = std::generic_category().message(errno);
      rows.push_back({"-", "-", "-", "-", common::withoutControls(name) + ": " + why});
    } else {
      rows.push_back({kindText(status.st_mode),
                      std::to_string(status.st_uid) + ":" + std::to_string(status.st_gid),
                      std::to_string(status.st_size),
                      utcText(status.st_mtime, "%Y-%m-%dT%H:%M:%SZ"),
                      common::withoutControls(name) + targetText(path)});
    }
  }
  return lines(rows);
}

}  // namespace qov::ctl
