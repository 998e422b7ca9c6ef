#include "module/library_search.h"

#include <ace/DLL_Manager.h>
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>

#include "frame/env/failure.h"

namespace qov {
namespace {

/// As ACE decorates it.
std::vector<std::string> fileNamesOf(const std::string& name) {
  const std::size_t start = name.rfind('/') + 1;
  if (name.find('.', start) != std::string::npos) {
    return {name};
  }
  return {name.substr(0, start) + "lib" + name.substr(start) + ".so", name + ".so", name};
}

/// ACE, which opens the libraries: the dynamic loader searches where the one who asks it wants.
/// Null if it is not found.
void* openAce() {
  Dl_info ace{};
  const auto* const ofAce = reinterpret_cast<const void*>(&ACE_DLL_Manager::instance);
  return ::dladdr(ofAce, &ace) != 0 ? ::dlopen(ace.dli_fname, RTLD_LAZY | RTLD_NOLOAD) : nullptr;
}

/// The directories that the dynamic loader searches for modules.
std::vector<std::string> searchPath() {
  std::vector<std::string> directories;
  void* const ace = openAce();
  Dl_serinfo size{};
  if (ace == nullptr || ::dlinfo(ace, RTLD_DI_SERINFOSIZE, &size) != 0) {
    return directories;
  }
  std::vector<std::max_align_t> memory(size.dls_size / sizeof(std::max_align_t) + 1);
  auto* const found = reinterpret_cast<Dl_serinfo*>(memory.data());
  *found = size;
  if (::dlinfo(ace, RTLD_DI_SERINFO, found) == 0) {
    for (unsigned i = 0; i < found->dls_cnt; ++i) {
      directories.emplace_back(found->dls_serpath[i].dls_name);
    }
  }
  ::dlclose(ace);
  return directories;
}

/// A name with a "/" is a path already.
bool isPath(const std::string& name) {
  return name.find('/') != std::string::npos;
}

struct Candidate {
  std::string path;
  int error = 0;  ///< why it cannot be read
};

/// The first file of these names; its path is empty when there is none.
Candidate findFile(const std::vector<std::string>& fileNames) {
  const bool arePaths = isPath(fileNames.front());
  for (const std::string& directory : arePaths ? std::vector<std::string>{""} : searchPath()) {
    for (const std::string& fileName : fileNames) {
      const std::string path = arePaths ? fileName : directory + "/" + fileName;
      const int error = ::access(path.c_str(), R_OK) == 0 ? 0 : errno;
      if (error != ENOENT && error != ENOTDIR) {
        return {path, error};
      }
    }
  }
  return {};
}

std::string join(const std::vector<std::string>& texts) {
  std::string all;
  for (const std::string& text : texts) {
    all += (all.empty() ? "" : ", ") + text;
  }
  return all;
}

std::string nowhere(const std::vector<std::string>& fileNames) {
  if (isPath(fileNames.front())) {
    return "there is none of " + join(fileNames);
  }
  const char* const path = std::getenv("LD_LIBRARY_PATH");
  return "none of " + join(fileNames) + " is in LD_LIBRARY_PATH (" +
         (path != nullptr && *path != '\0' ? path : "not set") +
         ") or the system's library directories";
}

}  // namespace

std::string whyNotOpened(const std::string& name, const std::vector<std::string>& said) {
  const std::vector<std::string> fileNames = fileNamesOf(name);
  const auto isThere = [&](const std::string& text) {
    return std::none_of(fileNames.begin(), fileNames.end(), [&](const std::string& fileName) {
      return text == fileName + ": cannot open shared object file: No such file or directory";
    });
  };
  const Candidate file = findFile(fileNames);
  const auto reason = std::find_if(said.begin(), said.end(), isThere);
  if (reason != said.end()) {
    return reason->front() == '/' || file.path.empty() ? *reason : file.path + ": " + *reason;
  }
  if (file.path.empty()) {
    return nowhere(fileNames);
  }
  // The loader passes over these as if they were not there.
  return file.path + ": " +
         (file.error != 0 ? errnoText(file.error) : "not a library for this machine");
}

}  // namespace qov
