#include "module/module_list.h"

#include <dirent.h>

#include <cerrno>
#include <memory>
#include <utility>

namespace qov {
namespace {

constexpr const char kMarker[] = ".mod";
constexpr std::size_t kMarkerLength = sizeof kMarker - 1;

struct CloseDir {
  void operator()(DIR* dir) const { ::closedir(dir); }
};

/// The module that `file` marks; empty when it marks none.
std::string moduleOf(const std::string& file) {
  const std::size_t marker = file.find(kMarker);
  // Only the first marker counts, so that a.mod.mod is none on purpose.
  if (marker == std::string::npos || file.size() - marker > kMarkerLength) {
    return {};
  }
  return file.substr(0, marker);
}

void add(const std::string& directory, const std::string& file, ModuleList& list) {
  std::string name = moduleOf(file);
  const std::size_t marker = file.find(kMarker);
  if (!name.empty()) {
    list.names.push_back(std::move(name));
  } else if (marker != std::string::npos) {
    list.ignored.push_back({"take a file for a module marker",
                            directory + file,
                            0,
                            {},
                            marker == 0 ? "no module's name stands before .mod"
                                        : "its first .mod is not the end of its name"});
  }
}

}  // namespace

ModuleList modulesOf(const std::string& directory) {
  ModuleList list;
  const std::unique_ptr<DIR, CloseDir> dir(::opendir(directory.c_str()));
  if (dir == nullptr) {
    list.isOpen = false;
    list.failure = {"list the modules", directory, 0, {}, errnoText(errno)};
    return list;
  }
  while (const dirent* const entry = ::readdir(dir.get())) {
    add(directory, entry->d_name, list);
  }
  if (list.names.empty()) {
    list.failure = {"find a module", directory, 0, {}, "the directory has no file <module>.mod"};
  }
  return list;
}

std::string markerOf(const std::string& directory, const std::string& module) {
  return directory + module + kMarker;
}

}  // namespace qov
