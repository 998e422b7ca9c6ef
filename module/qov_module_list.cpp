#include <dirent.h>

#include <cerrno>
#include <exception>
#include <memory>
#include <new>
#include <utility>

#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_module_loader.h>
#include <qovpub/qov_utility.h>

#include "diag/log_ids.h"
#include "frame/env/failure.h"

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

/// Of files that someone may have meant to be markers. An editor's copies among them, hence no
/// error.
void tellIgnored(const std::string& directory, const std::string& file, CQOVDebugKitGuard& guard) {
  const std::size_t marker = file.find(kMarker);
  if (marker != std::string::npos) {
    guard.warn(qov::log_id::kMarkerIgnored, "getModuleList", __LINE__, "%s",
               qov::textOf({"take a file for a module marker",
                            directory + file,
                            0,
                            {},
                            marker == 0 ? "no module's name stands before .mod"
                                        : "its first .mod is not the end of its name"})
                   .c_str());
  }
}

std::list<std::string> modulesIn(DIR& dir, const std::string& directory, CQOVDebugKitGuard& guard) {
  std::list<std::string> names;
  while (const dirent* const entry = ::readdir(&dir)) {
    std::string name = moduleOf(entry->d_name);
    if (name.empty()) {
      tellIgnored(directory, entry->d_name, guard);
    } else {
      names.push_back(std::move(name));
    }
  }
  return names;
}

/// The process configuration directory. Without a process configuration there is none to look in:
/// the reason is logged and the result is empty.
std::string configDirectory(CQOVDebugKitGuard& guard) {
  try {
    return QOV_Utility::getProcessCfgPath();
  } catch (const std::exception& e) {
    guard.error(qov::log_id::kListNoConfiguration, __FUNCTION__, __LINE__, "%s", e.what());
    return {};
  }
}

}  // namespace

void CQOV_Module_Loader::getModuleList(std::list<std::string>& names) const {
  CQOVDebugKitGuard guard(0,
                          "void CQOV_Module_Loader::getModuleList(std::list<std::string>&) const");
  const std::string directory = configDirectory(guard);
  if (directory.empty()) {
    return;
  }
  const std::unique_ptr<DIR, CloseDir> dir(::opendir(directory.c_str()));
  if (dir == nullptr) {
    const std::string cause = qov::errnoText(errno);
    guard.error(qov::log_id::kListNotOpened, __FUNCTION__, __LINE__, "Failed to open %s",
                directory.c_str());
    guard.error(qov::log_id::kListReason, __FUNCTION__, __LINE__, "%s",
                qov::textOf({"list the modules", directory, 0, {}, cause}).c_str());
    return;
  }
  try {
    std::list<std::string> found = modulesIn(*dir, directory, guard);
    if (found.empty()) {
      guard.error(
          qov::log_id::kListReason, __FUNCTION__, __LINE__, "%s",
          qov::textOf({"find a module", directory, 0, {}, "the directory has no file <module>.mod"})
              .c_str());
    }
    names.splice(names.end(), found);
  } catch (const std::bad_alloc&) {
    guard.error(qov::log_id::kListNoMemory, __FUNCTION__, __LINE__, "Failed to list modules of %s",
                directory.c_str());
    errno = ENOMEM;
  }
}
