#include "diag/log_failures.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <list>
#include <utility>

namespace qov {
namespace {

std::string folderOf(const std::string& path) {
  return path.substr(0, path.rfind('/') + 1);
}

/// 0 or an errno value.
int errorOf(const std::string& path, int access) {
  return ::faccessat(AT_FDCWD, path.c_str(), access, AT_EACCESS) == 0 ? 0 : errno;
}

}  // namespace

Failure whyNoLogKey(CQOV_Ini_Operator& ini, const std::string& file, const std::string& key) {
  std::list<std::pair<std::string, std::string>> items;
  Failure failure{"configure the log", file, 0, "LOG_CFG", {}};
  if (ini.enumerateSections("LOG_CFG", items) != 0) {
    failure.cause = "there is no such section";
  } else {
    failure.key += "/" + key;
    failure.cause = "there is no such key";
  }
  return failure;
}

Failure whyNoLogFile(const std::string& path, int error) {
  const std::string folder = folderOf(path);
  const bool noFolder = error == ENOENT && errorOf(folder, F_OK) != 0;
  const std::string cause = noFolder ? "there is no directory " + folder : errnoText(error);
  return {"open the log", path, 0, {}, cause + "; records go to standard error"};
}

int errorOfLogFile(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) == 0) {
    return S_ISDIR(status.st_mode) ? EISDIR : errorOf(path, W_OK);
  }
  return errno == ENOENT ? errorOf(folderOf(path), W_OK | X_OK) : errno;
}

}  // namespace qov
