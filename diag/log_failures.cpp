#include "diag/log_failures.h"

#include <fcntl.h>
#include <qovpub/qov_logging_strategy.h>
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

Failure whyNoLogFile(const std::string& path, int error, const std::string& place) {
  const std::string folder = folderOf(path);
  std::string cause = errnoText(error);
  if (error == ENOENT && errorOf(folder, F_OK) != 0) {
    cause = "there is no directory " + folder;
  } else if (error == ENXIO && isPipe(path)) {
    cause = "a pipe takes nothing while nobody reads it";
  }
  cause += "; records go to " + (place.empty() ? "standard error" : place);
  return {"open the log", path, 0, {}, cause};
}

int errorOfLogFile(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) == 0) {
    if (S_ISDIR(status.st_mode)) {
      return EISDIR;
    }
    const int denied = errorOf(path, W_OK);
    const bool isOpenedByAnother = S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode);
    return denied == 0 && isOpenedByAnother ? ENXIO : denied;
  }
  return errno == ENOENT ? errorOf(folderOf(path), W_OK | X_OK) : errno;
}

bool isPipe(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
}

std::string pathThatFits(const std::string& path) {
  return path.substr(0, sizeof(CLogging_Cfg_Param::logFile_) - 1);
}

Failure whyCutPath(const std::string& path, const std::string& cut) {
  return {"take the whole path of the log", path, 0, {}, "it is too long; records go to " + cut};
}

}  // namespace qov
