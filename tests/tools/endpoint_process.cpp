#include "tests/tools/endpoint_process.h"

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <stdexcept>

namespace qov::test {
namespace {

const std::string kListening = "listening on 127.0.0.1:";

/// Where the child's standard output and error go.
class FileActions {
 public:
  FileActions() { ::posix_spawn_file_actions_init(&actions_); }
  ~FileActions() { ::posix_spawn_file_actions_destroy(&actions_); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;

  void redirect(int descriptor, const std::string& file) {
    ::posix_spawn_file_actions_addopen(&actions_, descriptor, file.c_str(),
                                       O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
  }
  const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

}  // namespace

void EndpointProcess::spawn(const std::vector<std::string>& arguments) {
  killChild(pid_);
  std::vector<std::string> words{QOV_ENDPOINT};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> pointers;
  for (std::string& word : words) {
    pointers.push_back(word.data());
  }
  pointers.push_back(nullptr);
  FileActions files;
  files.redirect(STDOUT_FILENO, path("stdout"));
  files.redirect(STDERR_FILENO, path("stderr"));
  if (::posix_spawn(&pid_, QOV_ENDPOINT, files.get(), nullptr, pointers.data(), environ) != 0) {
    pid_ = -1;
    throw std::runtime_error("cannot start the endpoint");
  }
}

bool EndpointProcess::start(std::vector<std::string> arguments) {
  arguments.insert(arguments.end(), {"--port", std::to_string(port_)});
  spawn(arguments);
  return waitUntil([&] { return hasLine() || hasEnded(); }) && readPort();
}

bool EndpointProcess::hasEnded() const {
  siginfo_t ended = {};
  ::waitid(P_PID, static_cast<id_t>(pid_), &ended, WEXITED | WNOHANG | WNOWAIT);
  return ended.si_pid != 0;
}

/// From the first line, which has to be exactly as documented.
bool EndpointProcess::readPort() {
  const std::string line = output().substr(0, output().find('\n'));
  if (line.compare(0, kListening.size(), kListening) != 0) {
    return false;
  }
  const unsigned long port = std::stoul(line.substr(kListening.size()));
  port_ = static_cast<std::uint16_t>(port);
  return port != 0 && line == kListening + std::to_string(port);
}

Ending EndpointProcess::run(const std::vector<std::string>& arguments) {
  spawn(arguments);
  return waitForEnd();
}

}  // namespace qov::test
