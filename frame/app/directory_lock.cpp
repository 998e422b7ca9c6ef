#include "frame/app/directory_lock.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <fstream>

namespace qov {
namespace {

/// The directory's descriptor while it is locked.
int held = -1;

/// A lock is there while anyone has its descriptor open. A helper that a module forks may outlive
/// this process and must not keep the next one from it.
void closeInChild() {
  if (held >= 0) {
    ::close(held);
  }
  held = -1;
}

const int registered = ::pthread_atfork(nullptr, nullptr, &closeInChild);

bool isSame(int one, int other) {
  struct stat first {};
  struct stat second {};
  return one >= 0 && ::fstat(one, &first) == 0 && ::fstat(other, &second) == 0 &&
         first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

/// A line is "1: FLOCK  ADVISORY  WRITE 123 08:01:4711 0 EOF": number, kind, process, file.
std::string holderOf(int descriptor) {
  struct stat status {};
  ::fstat(descriptor, &status);
  std::array<char, 64> file{};
  std::snprintf(file.data(), file.size(), "%02x:%02x:%lu", major(status.st_dev),
                minor(status.st_dev), static_cast<unsigned long>(status.st_ino));
  std::ifstream locks("/proc/locks");
  std::string number, kind, advisory, mode, pid, where, rest;
  while (locks >> number >> kind >> advisory >> mode >> pid >> where && std::getline(locks, rest)) {
    if (kind == "FLOCK" && where == file.data() && pid != "0") {
      return "process " + pid;
    }
  }
  return "another process";
}

}  // namespace

std::string lockDirectory(const std::string& directory) {
  const int descriptor = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) {
    return {};
  }
  std::string holder;
  if (isSame(held, descriptor)) {
    ::close(descriptor);
  } else if (::flock(descriptor, LOCK_EX | LOCK_NB) == 0) {
    held = descriptor;
  } else {
    if (errno == EWOULDBLOCK) {
      holder = holderOf(descriptor);
    }
    ::close(descriptor);
  }
  return holder;
}

}  // namespace qov
