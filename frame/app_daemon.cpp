#include "frame/app_daemon.h"

#include <ace/ACE.h>
#include <dirent.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <vector>

namespace qov {
namespace {

/// ACE closes every number up to the limit of open files, which takes minutes where that is a
/// billion. It gets this limit; descriptors above it are looked up.
constexpr rlim_t kDescriptorLimit = 4096;

class DescriptorLimit {
 public:
  DescriptorLimit() : known_(::getrlimit(RLIMIT_NOFILE, &former_) == 0) {
    if (known_) {
      rlimit lowered = former_;
      lowered.rlim_cur = std::min(lowered.rlim_cur, kDescriptorLimit);
      ::setrlimit(RLIMIT_NOFILE, &lowered);
    }
  }
  ~DescriptorLimit() {
    if (known_) {
      ::setrlimit(RLIMIT_NOFILE, &former_);
    }
  }

  DescriptorLimit(const DescriptorLimit&) = delete;
  DescriptorLimit& operator=(const DescriptorLimit&) = delete;

 private:
  rlimit former_{};
  bool known_;
};

class FileModeMask {
 public:
  FileModeMask() : former_(::umask(077)) { ::umask(former_); }
  ~FileModeMask() { ::umask(former_); }

  FileModeMask(const FileModeMask&) = delete;
  FileModeMask& operator=(const FileModeMask&) = delete;

 private:
  mode_t former_;
};

struct CloseDir {
  void operator()(DIR* dir) const { ::closedir(dir); }
};

void closeDescriptorsFrom(int first) {
  std::vector<int> open;
  {
    const std::unique_ptr<DIR, CloseDir> dir(::opendir("/proc/self/fd"));
    while (const dirent* const entry = dir == nullptr ? nullptr : ::readdir(dir.get())) {
      open.push_back(std::atoi(entry->d_name));
    }
  }
  for (const int descriptor : open) {
    if (descriptor >= first) {
      ::close(descriptor);
    }
  }
}

}  // namespace

void becomeDaemon(const std::string& directory) {
  // The processes that exit would write what is buffered once more each.
  std::cout.flush();
  std::clog.flush();
  std::fflush(nullptr);
  const FileModeMask mask;
  int result = 0;
  {
    const DescriptorLimit limit;
    result = ACE::daemonize(directory.c_str(), true, "<unknown>");
  }
  if (result == 0) {
    closeDescriptorsFrom(static_cast<int>(kDescriptorLimit));
  }
}

}  // namespace qov
