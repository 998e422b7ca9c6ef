#include "tools/qovctl/agent_socket.h"

#include <poll.h>
#include <qovpub/qov_ini_operator.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <vector>

#include "modules/common/json_object.h"
#include "modules/status/socket_path.h"
#include "tools/qovctl/failure.h"

namespace fs = std::filesystem;

namespace qov::ctl {
namespace {

using Clock = std::chrono::steady_clock;

/// Of an answer; no agent has as many modules.
constexpr std::size_t kLongestAnswer = 16777216;

[[noreturn]] void fail(ExitCode code, const std::string& path, const std::string& why) {
  throw Failure(code, path + ": " + why);
}

/// The only process that has a configuration below `root`.
std::string onlyProcess(const std::string& root) {
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(root + "/conf", error)) {
    const std::string name = entry.path().filename();
    if (fs::exists(entry.path() / (name + ".cfg"), error)) {
      names.push_back(name);
    }
  }
  if (names.size() != 1) {
    fail(kUsage, root + "/conf",
         names.empty() ? "no agent's configuration; --root or --socket says where an agent is"
                       : "more than one agent's configuration; --process says which");
  }
  return names.front();
}

}  // namespace

std::string processOf(const AgentTarget& target) {
  if (target.root.empty()) {
    throw Failure(kUsage, "no agent is named: --root, --socket or QOV_ROOT says where it is");
  }
  return target.process.empty() ? onlyProcess(target.root) : target.process;
}

namespace {

std::string pathOf(const AgentTarget& target) {
  if (!target.socket.empty()) {
    return target.socket;
  }
  const std::string process = processOf(target);
  const std::string file = target.root + "/conf/" + process + "/" + process + ".cfg";
  CQOV_Ini_Operator configuration;
  if (configuration.open(file.c_str()) != 0) {
    fail(kFailed, file, "cannot be read as an agent's configuration");
  }
  return status::socketPath(configuration, target.root, process);
}

[[noreturn]] void lost(const std::string& path) {
  fail(
      kNoConnection, path,
      "the agent has closed the connection: it does not serve this user, serves too many, or ends");
}

}  // namespace

AgentConnection::AgentConnection(const AgentTarget& target)
    : path_(pathOf(target)),
      timeout_(target.timeout),
      interrupt_(target.interrupt),
      grace_(target.grace),
      socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path_.size() >= sizeof address.sun_path) {
    fail(kUsage, path_, "longer than a socket's path may be");
  }
  std::memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
  if (::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    const bool nobody = errno == ENOENT || errno == ECONNREFUSED;
    fail(kNoConnection, path_,
         "no connection: " + std::generic_category().message(errno) +
             (nobody ? "; no agent runs, or it lacks the module qovstatus" : ""));
  }
}

Json::Value AgentConnection::ask(const Json::Value& request) {
  std::string line = common::jsonText(request);
  std::replace(line.begin(), line.end() - 1, '\n', ' ');
  // A line is less than what a socket takes at once.
  if (::send(socket_.get(), line.data(), line.size(), MSG_NOSIGNAL) < 0) {
    lost(path_);
  }
  Json::Value answer = common::parseJson(receiveLine());
  if (!answer.isObject()) {
    fail(kBadData, path_, "the answer is no JSON object");
  }
  if (answer.isMember("error")) {
    fail(kEndpointError, path_, common::textAt(answer["error"], "error"));
  }
  return answer;
}

void AgentConnection::awaitBytes(Wait& wait) const {
  std::array<pollfd, 2> waits{{{socket_.get(), POLLIN, 0}, {-1, POLLIN, 0}}};
  do {
    waits[1].fd = wait.isInterrupted ? -1 : interrupt_;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(wait.end - Clock::now()).count();
    if (::poll(waits.data(), waits.size(), static_cast<int>(std::max<decltype(left)>(left, 0))) ==
        0) {
      if (wait.isInterrupted) {
        throw Interrupted(path_);
      }
      fail(kTimedOut, path_, "no answer in time");
    }
    if (waits[1].revents != 0) {
      wait = {std::min(wait.end, Clock::now() + grace_), true};
    }
  } while (waits[0].revents == 0);
}

std::string AgentConnection::receiveLine() {
  Wait wait{Clock::now() +
            std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(timeout_))};
  std::string line;
  std::array<char, 65536> bytes;
  while (line.empty() || line.back() != '\n') {
    awaitBytes(wait);
    const ssize_t count = ::recv(socket_.get(), bytes.data(), bytes.size(), 0);
    if (count <= 0) {
      lost(path_);
    }
    line.append(bytes.data(), static_cast<std::size_t>(count));
    if (line.size() > kLongestAnswer) {
      fail(kBadData, path_, "the answer is too long");
    }
  }
  return line;
}

Json::Value requestFor(const char* name) {
  Json::Value request(Json::objectValue);
  request["request"] = name;
  return request;
}

Json::Value askAgent(const AgentTarget& target, const Json::Value& request) {
  return AgentConnection(target).ask(request);
}

}  // namespace qov::ctl
