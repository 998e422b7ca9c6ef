#include "tests/modules/mqtt/broker.h"

#include <arpa/inet.h>
#include <pwd.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <sstream>
#include <stdexcept>

#include "tests/support/process_end.h"
#include "tests/support/spawn.h"

namespace qov::test {
namespace {

constexpr const char* kBroker = "/usr/sbin/mosquitto";
constexpr const char* kWatcher = "/usr/bin/mosquitto_sub";
constexpr const char* kWatcherId = "watcher";

sockaddr_in loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

/// One that nobody has now; the broker cannot choose one itself.
int freePort() {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address = loopback(0);
  socklen_t length = sizeof address;
  if (::bind(socket, reinterpret_cast<const sockaddr*>(&address), length) != 0) {
    throw std::runtime_error("no free port");
  }
  ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &length);
  ::close(socket);
  return ntohs(address.sin_port);
}

std::string bytesOf(const std::string& hex) {
  constexpr int kHex = 16;
  std::string bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
    bytes.push_back(static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, kHex)));
  }
  return bytes;
}

/// A line of the watcher, in the format that it is given.
Seen seenIn(const std::string& line) {
  std::array<std::string, 6> fields;
  std::istringstream text(line);
  for (std::string& field : fields) {
    std::getline(text, field, '|');
  }
  Seen message{fields[0], fields[1] == "1", fields[2], fields[3] == "1", 0, {}, bytesOf(fields[5])};
  std::istringstream properties(fields[4]);
  for (std::string property; properties >> property;) {
    if (property.rfind("number:", 0) == 0) {
      message.number = std::stoull(property.substr(7));
    } else if (property.rfind("outbox:", 0) == 0) {
      message.outbox = property.substr(7);
    }
  }
  return message;
}

}  // namespace

bool Broker::isInstalled() {
  return ::access(kBroker, X_OK) == 0 && ::access(kWatcher, X_OK) == 0;
}

Broker::Broker(std::string settings) : settings_(std::move(settings)) {}

Broker::~Broker() {
  killChild(pid_);
}

void Broker::writeConfiguration() const {
  // As root it would become another user, who may not read the folder.
  const passwd* const user = ::getpwuid(::getuid());
  writeFile(file("broker.conf"),
            "listener " + std::to_string(port_) + " 127.0.0.1\n" + settings_ +
                "persistence true\nautosave_interval 0\npersistence_location " +
                folder_.path().string() + "/\nlog_dest stderr\nlog_type all\n" +
                "max_inflight_messages 0\nmax_queued_messages 0\n" +
                (user != nullptr ? "user " + std::string(user->pw_name) + "\n" : ""));
}

void Broker::start() {
  constexpr int kTries = 20;
  for (int i = 0; i < kTries; ++i) {
    if (port_ == 0 || i > 0) {
      port_ = freePort();
    }
    writeConfiguration();
    BeforeProgram before;
    before.writeTo(STDERR_FILENO, file("log"));
    pid_ = spawn(kBroker, {"-c", file("broker.conf")}, before);
    const bool ended = [&] {
      bool gone = false;
      waitUntil([&] {
        gone = ::waitpid(pid_, nullptr, WNOHANG) == pid_;
        return gone || log().find(" running") != std::string::npos;
      });
      return gone;
    }();
    if (!ended) {
      return;
    }
    pid_ = -1;
    if (log().find("Address already in use") == std::string::npos) {
      break;
    }
  }
  throw std::runtime_error("the broker does not start: " + log());
}

void Broker::stop(int signal) {
  ::kill(pid_, signal);
  waitForEndOf(pid_);
}

void Broker::freeze() const {
  ::kill(pid_, SIGSTOP);
}

void Broker::saveSessions() {
  ::kill(pid_, SIGUSR1);
  waitUntil([&] { return !readFile(file("mosquitto.db")).empty(); });
}

void Broker::reload() const {
  ::kill(pid_, SIGHUP);
}

Watcher::Watcher(const Broker& broker, const std::vector<std::string>& options) : broker_(broker) {
  std::vector<std::string> words{"-h",
                                 "127.0.0.1",
                                 "-p",
                                 std::to_string(broker.port()),
                                 "-V",
                                 "5",
                                 "-c",
                                 "-x",
                                 "1000",
                                 "-i",
                                 kWatcherId,
                                 "-q",
                                 "1",
                                 "-t",
                                 "qov/#",
                                 "-F",
                                 "%t|%r|%C|%F|%P|%x"};
  words.insert(words.end(), options.begin(), options.end());
  BeforeProgram before;
  before.writeTo(STDOUT_FILENO, broker.file("seen"));
  pid_ = spawn(kWatcher, words, before);
  waitUntil([&] { return broker.log().find("Sending SUBACK to watcher") != std::string::npos; });
}

Watcher::~Watcher() {
  killChild(pid_);
}

std::vector<Seen> Watcher::seen(const std::string& part) const {
  std::vector<Seen> all;
  std::istringstream lines(readFile(broker_.file("seen")));
  for (std::string line; std::getline(lines, line) && !lines.eof();) {
    Seen message = seenIn(line);
    if (message.topic.find(part) != std::string::npos) {
      all.push_back(std::move(message));
    }
  }
  return all;
}

bool Watcher::waitFor(const std::string& part, std::size_t count) const {
  return waitUntil([&] { return seen(part).size() >= count; });
}

nlohmann::json Watcher::status() const {
  const std::vector<Seen> all = seen("/status");
  return all.empty() ? nlohmann::json() : all.back().json();
}

}  // namespace qov::test
