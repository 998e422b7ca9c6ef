#ifndef QOV_TESTS_SUPPORT_SLEEPING_THREAD_H
#define QOV_TESTS_SUPPORT_SLEEPING_THREAD_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include "tests/support/counts.h"
#include "tests/support/files.h"

namespace qov::test {

/// Whether the thread with the directory `thread` in /proc sleeps in the system.
inline bool sleeps(const std::filesystem::path& thread) {
  const std::string stat = readFile(thread / "stat");
  const std::size_t name = stat.rfind(')');
  return name != std::string::npos && stat.compare(name, 3, ") S") == 0;
}

/// Whether thread `id` of this process does.
inline bool sleeps(pid_t id) {
  return sleeps("/proc/self/task/" + std::to_string(id));
}

/// How often the thread with the directory `thread` in /proc has waited for something so far.
inline long waitsOf(const std::filesystem::path& thread) {
  return numberBehind("\nvoluntary_ctxt_switches:", readFile(thread / "status"));
}

/// Fails the test after a minute.
template <class Condition>
void waitForThread(const Condition& condition, const char* what) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= end) {
      ADD_FAILURE() << "waited in vain until the test's thread " << what;
      return;
    }
    std::this_thread::yield();
  }
}

}  // namespace qov::test

#endif
