#ifndef QOV_TESTS_PROCESS_MODULES_AGENT_FILES_H
#define QOV_TESTS_PROCESS_MODULES_AGENT_FILES_H

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

/// How test modules and the test that runs their process talk: files in "QOV_ROOT".
namespace qov::test {

inline std::string agentFile(const std::string& name) {
  const char* const root = std::getenv("QOV_ROOT");  // as AgentProcess sets it
  return (root != nullptr ? root : "") + ("/" + name);
}

/// False when it was there already.
inline bool makeFile(const std::string& name, const std::string& text = "") {
  const int file = ::open(agentFile(name + "~").c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
  if (file < 0) {
    return false;
  }
  const bool written = ::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  ::close(file);
  // Appears whole. The first name stays, so that the file is made once.
  return written && ::link(agentFile(name + "~").c_str(), agentFile(name).c_str()) == 0;
}

/// Waits for the test to make a file; false after a generous limit.
inline bool waitForFile(const std::string& name) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!std::ifstream(agentFile(name))) {
    if (std::chrono::steady_clock::now() > limit) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

}  // namespace qov::test

#endif
