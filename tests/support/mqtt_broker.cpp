#include "tests/support/mqtt_broker.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>
#include <utility>
#include <vector>

#include "tests/support/process_end.h"
#include "tests/support/spawn.h"

namespace qov::test {
namespace {

constexpr const char* kOpenSsl = "/usr/bin/openssl";

/// Where an administrator's programs are, which is not on everybody's PATH.
std::string brokerProgram() {
  for (const char* const each : {"/usr/sbin/mosquitto", "/usr/local/sbin/mosquitto"}) {
    if (::access(each, X_OK) == 0) {
      return each;
    }
  }
  return {};
}

void runOpenSsl(const TemporaryDirectory& directory, const std::vector<std::string>& arguments) {
  BeforeProgram before;
  before.changeDirectory(directory.path().string());
  before.writeTo(STDERR_FILENO, directory.file("openssl.log"));
  pid_t pid = spawn(kOpenSsl, arguments, before);
  if (waitForEndOf(pid).exitStatus != 0) {
    throw std::runtime_error("openssl: " + readFile(directory.path() / "openssl.log"));
  }
}

/// Makes NAME.key and NAME.crt, which ca.crt vouches for.
void makeCertificate(const TemporaryDirectory& directory, const std::string& name,
                     const std::string& hosts) {
  std::vector<std::string> arguments{
      "req",         "-x509", "-newkey",    "ec",    "-pkeyopt",    "ec_paramgen_curve:prime256v1",
      "-nodes",      "-days", "2",          "-subj", "/CN=" + name, "-keyout",
      name + ".key", "-out",  name + ".crt"};
  if (name != "ca") {
    arguments.insert(arguments.end(), {"-CA", "ca.crt", "-CAkey", "ca.key"});
  }
  if (!hosts.empty()) {
    arguments.insert(arguments.end(), {"-addext", "subjectAltName=" + hosts});
  }
  runOpenSsl(directory, arguments);
}

std::string withDirectory(std::string text, const std::string& directory) {
  for (std::size_t at = text.find("%d"); at != std::string::npos; at = text.find("%d")) {
    text.replace(at, 2, directory);
  }
  return text;
}

}  // namespace

ReservedPort::ReservedPort() : descriptor_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  const int on = 1;
  ::setsockopt(descriptor_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in bound{};
  bound.sin_family = AF_INET;
  bound.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof bound;
  if (::bind(descriptor_, reinterpret_cast<const sockaddr*>(&bound), size) != 0 ||
      ::getsockname(descriptor_, reinterpret_cast<sockaddr*>(&bound), &size) != 0) {
    ::close(descriptor_);
    throw std::runtime_error("no free port");
  }
  number_ = ntohs(bound.sin_port);
}

ReservedPort::~ReservedPort() {
  ::close(descriptor_);
}

std::string MqttBroker::whyNot() {
  if (brokerProgram().empty()) {
    return "mosquitto is not installed";
  }
  return ::access(kOpenSsl, X_OK) == 0 ? "" : "openssl is not installed";
}

MqttBroker::MqttBroker(Security security, const std::string& more)
    : security_(security), more_(withDirectory(more, directory_.path().string())) {
  if (security_ != Security::kNone) {
    makeCertificate(directory_, "ca", "");
    makeCertificate(directory_, "client", "");
    makeCertificate(directory_, "broker",
                    security_ == Security::kTlsForAnother ? "DNS:elsewhere.test"
                                                          : "IP:127.0.0.1,DNS:localhost");
  }
  start();
}

MqttBroker::~MqttBroker() {
  killChild(pid_);
}

void MqttBroker::stop(int signum) {
  ::kill(pid_, signum);
  waitForEndOf(pid_);
}

void MqttBroker::start() {
  if (!comesUp()) {
    throw std::runtime_error("mosquitto does not start: " + log());
  }
}

void MqttBroker::startWith(const std::string& more) {
  more_ = withDirectory(more, directory_.path().string());
  start();
}

void MqttBroker::freeze() const {
  ::kill(pid_, SIGSTOP);
}

void MqttBroker::goOn() const {
  ::kill(pid_, SIGCONT);
}

void MqttBroker::saveSessions() const {
  ::kill(pid_, SIGUSR1);
  waitUntil([&] { return !readFile(file("mosquitto.db")).empty(); });
}

void MqttBroker::reload() const {
  ::kill(pid_, SIGHUP);
}

/// Starts it, and waits until it listens.
bool MqttBroker::comesUp() {
  std::string configuration = "listener " + std::to_string(port()) +
                              " 127.0.0.1\nlog_dest stderr\n"
                              // Started by root it would become another user, who may not read
                              // the directory.
                              "user root\n";
  if (more_.find("allow_anonymous") == std::string::npos) {
    configuration += "allow_anonymous true\n";
  }
  if (security_ != Security::kNone) {
    configuration += "cafile " + file("ca.crt") + "\ncertfile " + file("broker.crt") +
                     "\nkeyfile " + file("broker.key") + "\n";
  }
  if (security_ == Security::kTlsWithClients) {
    configuration += "require_certificate true\n";
  }
  writeFile(directory_.path() / "broker.conf", configuration + more_);
  BeforeProgram before;
  before.writeTo(STDOUT_FILENO, file("log"));
  before.writeTo(STDERR_FILENO, file("log"));
  pid_ = spawn(brokerProgram(), {"-c", file("broker.conf")}, before);
  const bool told = waitUntil([&] {
    return log().find(" running\n") != std::string::npos ||
           ::waitpid(pid_, nullptr, WNOHANG) == pid_;
  });
  // It says so once it listens.
  const bool listens = told && log().find(" running\n") != std::string::npos;
  if (!listens) {
    killChild(std::exchange(pid_, -1));
  }
  return listens;
}

}  // namespace qov::test
