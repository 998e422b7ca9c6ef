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

#include "modules/status/descriptor.h"
#include "modules/status/socket_path.h"
#include "tools/common/json_object.h"
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

std::string pathOf(const AgentTarget& target) {
  if (!target.socket.empty()) {
    return target.socket;
  }
  if (target.root.empty()) {
    throw Failure(kUsage, "no agent is named: --root, --socket or QOV_ROOT says where it is");
  }
  const std::string process = target.process.empty() ? onlyProcess(target.root) : target.process;
  const std::string file = target.root + "/conf/" + process + "/" + process + ".cfg";
  CQOV_Ini_Operator configuration;
  if (configuration.open(file.c_str()) != 0) {
    fail(kFailed, file, "cannot be read as an agent's configuration");
  }
  return status::socketPath(configuration, target.root, process);
}

class Connection {
 public:
  Connection(std::string path, double timeout)
      : path_(std::move(path)),
        end_(Clock::now() +
             std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(timeout))),
        socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path_.size() >= sizeof address.sun_path) {
      fail(kUsage, path_, "longer than a socket's path may be");
    }
    std::memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
    if (::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) !=
        0) {
      fail(kNoConnection, path_, "no connection: " + std::generic_category().message(errno));
    }
  }

  /// A line is less than what a socket takes at once.
  void send(const std::string& line) {
    if (::send(socket_.get(), line.data(), line.size(), MSG_NOSIGNAL) < 0) {
      lost();
    }
  }

  std::string receiveLine() {
    std::string line;
    std::array<char, 65536> bytes;
    while (line.empty() || line.back() != '\n') {
      awaitBytes();
      const ssize_t count = ::recv(socket_.get(), bytes.data(), bytes.size(), 0);
      if (count <= 0) {
        lost();
      }
      line.append(bytes.data(), static_cast<std::size_t>(count));
      if (line.size() > kLongestAnswer) {
        fail(kBadData, path_, "the answer is too long");
      }
    }
    return line;
  }

 private:
  [[noreturn]] void lost() const {
    fail(kNoConnection, path_,
         "the agent has closed the connection: it does not serve this user, serves too many, or "
         "ends");
  }

  void awaitBytes() const {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end_ - Clock::now()).count();
    pollfd wait{socket_.get(), POLLIN, 0};
    if (::poll(&wait, 1, static_cast<int>(std::max<decltype(left)>(left, 0))) == 0) {
      fail(kTimedOut, path_, "no answer in time");
    }
  }

  const std::string path_;
  const Clock::time_point end_;
  const status::Descriptor socket_;
};

}  // namespace

Json::Value askAgent(const AgentTarget& target, const Json::Value& request) {
  const std::string path = pathOf(target);
  Connection agent(path, target.timeout);
  std::string line = tools::jsonText(request);
  std::replace(line.begin(), line.end() - 1, '\n', ' ');
  agent.send(line);
  Json::Value answer = tools::parseJson(agent.receiveLine());
  if (!answer.isObject()) {
    fail(kBadData, path, "the answer is no JSON object");
  }
  if (answer.isMember("error")) {
    fail(kEndpointError, path, tools::textAt(answer["error"], "error"));
  }
  return answer;
}

}  // namespace qov::ctl
