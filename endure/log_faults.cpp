#include "endure/log_faults.h"

#include <sys/resource.h>

#include <cerrno>
#include <string>
#include <system_error>

namespace qov::endure {

namespace fs = std::filesystem;

void LogFaults::fillDisk(pid_t agent, std::int64_t least) {
  constexpr std::int64_t kMost = 100000;
  const std::int64_t bytes = campaign_.between(0, 1) == 0 ? least : campaign_.between(least, kMost);
  limitFiles(agent, static_cast<std::uint64_t>(bytes));
  isDiskFull_ = true;
}

void LogFaults::freeDisk(pid_t agent) {
  limitFiles(agent, RLIM_INFINITY);
  isDiskFull_ = false;
}

void LogFaults::limitFiles(pid_t agent, std::uint64_t bytes) {
  const rlimit limit{bytes, RLIM_INFINITY};
  if (::prlimit(agent, RLIMIT_FSIZE, &limit, nullptr) != 0) {
    throw std::system_error(errno, std::generic_category(), "limit the agent's files");
  }
}

void LogFaults::takeFolder() {
  away_ = root_ / ("log_" + std::to_string(++moved_));
  fs::rename(folder(), away_);
}

void LogFaults::bringFolder(bool same) {
  if (same) {
    fs::rename(away_, folder());
  } else {
    fs::create_directory(folder());
  }
  away_.clear();
}

void LogFaults::moveFile(const fs::path& file) {
  std::error_code gone;  // a rotation may be under way
  fs::rename(file, folder() / ("moved_" + std::to_string(++moved_)), gone);
}

}  // namespace qov::endure
