#ifndef QOV_TESTS_PLATFORM_GUARD_THREADS_H
#define QOV_TESTS_PLATFORM_GUARD_THREADS_H

#include <csignal>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/files.h"
#include "tests/support/sleeping_thread.h"

namespace qov::test {

/// What /proc knows of the threads of this process that are named `name`, one directory each.
inline std::vector<std::filesystem::path> threadsNamed(const std::string& name) {
  std::vector<std::filesystem::path> threads;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    if (readFile(task.path() / "comm") == name + "\n") {
      threads.push_back(task.path());
    }
  }
  return threads;
}

/// Waits until the one thread that is named `name` has started and waits for something.
inline std::filesystem::path waitUntilAsleep(const std::string& name) {
  std::vector<std::filesystem::path> threads = threadsNamed(name);
  while (threads.size() != 1 || !sleeps(threads.front())) {
    std::this_thread::yield();
    threads = threadsNamed(name);
  }
  return threads.front();
}

/// Waits until the thread that watches the guards of this process waits for its next look.
inline std::filesystem::path waitUntilTheWatchSleeps() {
  return waitUntilAsleep("qov-overdue");
}

/// Whether `thread` has every signal blocked that a program may block.
inline bool takesNoSignals(const std::filesystem::path& thread) {
  const std::string status = readFile(thread / "status");
  const std::string label = "SigBlk:";
  const std::uint64_t blocked =
      std::stoull(status.substr(status.find(label) + label.size()), nullptr, 16);
  bool all = true;
  for (int signum = 1; signum < NSIG; ++signum) {
    const bool reserved = signum == SIGKILL || signum == SIGSTOP ||
                          (signum >= __SIGRTMIN && signum < SIGRTMIN);  // those of the C library
    all = all && (reserved || (blocked >> (signum - 1) & 1U) != 0);
  }
  return all;
}

}  // namespace qov::test

#endif
