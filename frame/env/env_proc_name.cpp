#include "frame/env/env_proc_name.h"

#include <qovpub/qov_utility.h>
#include <unistd.h>

#include <array>

namespace qov {
namespace {

std::size_t startOfName(const std::string& path) {
  std::size_t separator = path.rfind('/');
  if (separator == std::string::npos) {
    separator = path.rfind('\\');
  }
  return separator == std::string::npos ? 0 : separator + 1;
}

/// Empty when it cannot be read.
std::string pathOfExecutable() {
  constexpr std::size_t kLongestTarget = 260;
  std::array<char, kLongestTarget + 1> target{};
  const std::string link = "/proc/" + std::to_string(::getpid()) + "/exe";
  if (::readlink(link.c_str(), target.data(), kLongestTarget) < 0) {
    target[0] = '\0';
  }
  return target.data();
}

/// Null for the executable's own.
const std::string* assumedName = nullptr;

}  // namespace

std::string procNameFromPath(const std::string& path) {
  const std::size_t start = startOfName(path);
  const std::size_t dot = path.rfind('.');
  if (dot == std::string::npos) {
    return path.substr(start);
  }
  return start < dot ? path.substr(start, dot - start) : std::string();
}

std::string whyEmptyName(const std::string& path) {
  if (path.empty()) {
    return "the process name is empty, since /proc does not give the executable's path";
  }
  const std::size_t folderEnd = path.find('/', path.rfind('.'));
  const std::string place = folderEnd == std::string::npos
                                ? "at the beginning of the file's name"
                                : "in the folder name " + path.substr(0, folderEnd);
  return "the process name is empty, since the name ends at the last dot of the executable's "
         "path " +
         path + ", which stands " + place + "; give the file a suffix (" + path + ".bin)";
}

std::string whyNoProcName() {
  return whyEmptyName(pathOfExecutable());
}

void assumeProcName(const std::string& procName) {
  assumedName = &procName;
}

}  // namespace qov

void CProcInfo::getProcName(std::string& name) {
  name = qov::assumedName != nullptr ? *qov::assumedName
                                     : qov::procNameFromPath(qov::pathOfExecutable());
}
