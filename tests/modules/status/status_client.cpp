#include "tests/modules/status/status_client.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cstring>
#include <stdexcept>

namespace qov::test {
namespace {

constexpr int kPatienceMs = 90000;

}  // namespace

StatusClient::StatusClient(const std::string& path)
    : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  if (::connect(socket_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    throw std::runtime_error("cannot connect to " + path + ": " + std::strerror(errno));
  }
}

void StatusClient::send(const std::string& bytes) const {
  static_cast<void>(!::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL));
}

void StatusClient::fill(const std::string& bytes) const {
  while (::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT) > 0) {
  }
}

nlohmann::json StatusClient::receive() {
  while (received_.find('\n') == std::string::npos) {
    const std::string bytes = more();
    if (bytes.empty()) {
      throw std::runtime_error("the agent has closed the connection");
    }
    received_ += bytes;
  }
  const std::size_t end = received_.find('\n');
  const std::string line = received_.substr(0, end);
  received_.erase(0, end + 1);
  return nlohmann::json::parse(line);
}

bool StatusClient::isClosed() {
  return more().empty();
}

void StatusClient::drain() {
  while (!isClosed()) {
  }
}

void StatusClient::shutDown() const {
  ::shutdown(socket_.get(), SHUT_WR);
}

pid_t StatusClient::agent() const {
  ucred peer{};
  socklen_t size = sizeof peer;
  ::getsockopt(socket_.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size);
  return peer.pid;
}

std::string StatusClient::more() const {
  pollfd wait{socket_.get(), POLLIN, 0};
  if (::poll(&wait, 1, kPatienceMs) != 1) {
    throw std::runtime_error("the agent does not answer");
  }
  std::array<char, 65536> bytes;
  const ssize_t count = ::recv(socket_.get(), bytes.data(), bytes.size(), 0);
  return {bytes.data(), count > 0 ? static_cast<std::size_t>(count) : 0};
}

}  // namespace qov::test
