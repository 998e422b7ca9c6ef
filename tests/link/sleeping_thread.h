#ifndef QOV_TESTS_LINK_SLEEPING_THREAD_H
#define QOV_TESTS_LINK_SLEEPING_THREAD_H

#include <gtest/gtest.h>
#include <sys/types.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

namespace qov::test {

/// Whether thread `id` of this process sleeps in the system.
inline bool sleeps(pid_t id) {
  std::ifstream file("/proc/self/task/" + std::to_string(id) + "/stat");
  std::string text;
  std::getline(file, text);
  const std::size_t name = text.rfind(')');
  return name != std::string::npos && text.compare(name + 2, 1, "S") == 0;
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
