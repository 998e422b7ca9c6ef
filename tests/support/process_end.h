#ifndef QOV_TESTS_SUPPORT_PROCESS_END_H
#define QOV_TESTS_SUPPORT_PROCESS_END_H

#include <signal.h>
#include <sys/types.h>
#include <sys/wait.h>

#include <chrono>
#include <thread>

namespace qov::test {

constexpr std::chrono::seconds kGenerous{90};

/// Waits until `condition` holds; false after `most`.
template <class Condition>
bool waitUntil(const Condition& condition, std::chrono::seconds most = kGenerous) {
  const auto limit = std::chrono::steady_clock::now() + most;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > limit) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

/// How a process ended.
struct Ending {
  bool ended = false;  ///< false when it was still there after the limit
  int exitStatus = -1;
  int signal = 0;
};

/// Collects a child. `pid` becomes -1 when it has ended.
inline Ending waitForEndOf(pid_t& pid, std::chrono::seconds most = kGenerous) {
  Ending ending;
  int status = 0;
  if (pid <= 0) {
    return ending;
  }
  ending.ended = waitUntil([&] { return ::waitpid(pid, &status, WNOHANG) == pid; }, most);
  if (ending.ended) {
    pid = -1;
    ending.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    ending.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  }
  return ending;
}

/// Nothing happens to a process that was collected, whose number may be another's by now.
inline void killChild(pid_t pid) {
  if (pid > 0 && ::waitpid(pid, nullptr, WNOHANG) == 0) {
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
  }
}

}  // namespace qov::test

#endif
