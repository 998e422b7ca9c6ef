#ifndef QOV_TESTS_TOOLS_ENDPOINT_PROCESS_H
#define QOV_TESTS_TOOLS_ENDPOINT_PROCESS_H

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/files.h"
#include "tests/support/process_end.h"

namespace qov::test {

/// Runs qov-endpoint with files in a directory of its own. A process that is still there when the
/// object goes is killed.
class EndpointProcess {
 public:
  EndpointProcess() = default;
  ~EndpointProcess() { killChild(pid_); }
  EndpointProcess(const EndpointProcess&) = delete;
  EndpointProcess& operator=(const EndpointProcess&) = delete;

  /// Starts it on a free port, or on the one it had before, and waits until it says so. False when
  /// it does not; then errors() may tell why.
  bool start(std::vector<std::string> arguments = {});
  /// Runs it with just these arguments to its end.
  Ending run(const std::vector<std::string>& arguments);

  /// For the next start.
  void usePort(std::uint16_t port) { port_ = port; }
  /// What the next start has to say where it listens; "127.0.0.1" without it.
  void expectHost(const std::string& host) { host_ = host; }
  /// How many files the next ones may have open; it cannot have more.
  void limitFiles(unsigned files) { files_ = files; }
  /// The next ones have no standard error.
  void closeErrors() { hasErrors_ = false; }
  std::uint16_t port() const { return port_; }
  pid_t pid() const { return pid_; }
  void send(int signum) const { ::kill(pid_, signum); }
  Ending waitForEnd() { return waitForEndOf(pid_); }
  Ending end(int signum) {
    send(signum);
    return waitForEnd();
  }

  /// Of the last run.
  std::string output() const { return readFile(directory_.path() / "stdout"); }
  std::string errors() const { return readFile(directory_.path() / "stderr"); }
  bool waitForError(const std::string& text) const {
    return waitUntil([&] { return errors().find(text) != std::string::npos; });
  }

  /// Writes a file for it and gives the path.
  std::string file(const std::string& name, const std::string& content) const {
    writeFile(directory_.path() / name, content);
    return path(name);
  }
  std::string path(const std::string& name) const { return directory_.file(name); }

 private:
  void spawn(const std::vector<std::string>& arguments);
  bool hasLine() const { return output().find('\n') != std::string::npos; }
  bool hasEnded() const;
  bool readPort();

  const TemporaryDirectory directory_;
  pid_t pid_ = -1;
  std::uint16_t port_ = 0;
  std::string host_ = "127.0.0.1";
  bool hasErrors_ = true;
  unsigned files_ = 0;  ///< 0 for as many as this process may have
};

}  // namespace qov::test

#endif
