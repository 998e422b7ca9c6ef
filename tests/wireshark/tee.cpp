#include "tests/wireshark/tee.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

namespace qov::test {
namespace {

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

int newSocket() {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (socket < 0) {
    throw std::runtime_error("no socket");
  }
  return socket;
}

int listenOnFreePort() {
  const int socket = newSocket();
  const sockaddr_in address = loopback(0);
  if (::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(socket, 1) != 0) {
    throw std::runtime_error("cannot listen");
  }
  return socket;
}

std::uint16_t portOf(int socket) {
  sockaddr_in address = {};
  socklen_t size = sizeof address;
  ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

int connectTo(std::uint16_t port) {
  const int socket = newSocket();
  const sockaddr_in address = loopback(port);
  if (::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    ::close(socket);
    return -1;
  }
  return socket;
}

void sendAtOnce(int socket) {
  const int on = 1;
  ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

void sendAll(int socket, const std::string& bytes) {
  for (std::size_t sent = 0; sent < bytes.size();) {
    const ssize_t count = ::send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (count <= 0) {
      return;
    }
    sent += static_cast<std::size_t>(count);
  }
}

// What is there now, which may be nothing at the stream's end.
std::string receivePiece(int socket) {
  std::array<char, 65536> buffer;
  const ssize_t count = ::recv(socket, buffer.data(), buffer.size(), 0);
  return {buffer.data(), count > 0 ? static_cast<std::size_t>(count) : 0};
}

}  // namespace

Tee::Tee(std::uint16_t endpointPort, Capture& capture)
    : listener_(listenOnFreePort()),
      port_(portOf(listener_)),
      thread_([this, endpointPort, &capture] { serve(endpointPort, capture); }) {}

void Tee::finish() {
  if (thread_.joinable()) {
    // Nobody may have come.
    ::shutdown(listener_, SHUT_RDWR);
    thread_.join();
    ::close(listener_);
  }
}

void Tee::serve(std::uint16_t endpointPort, Capture& capture) {
  for (;;) {
    const int client = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) {
      return;
    }
    const int endpoint = connectTo(endpointPort);
    if (endpoint >= 0) {
      pass(client, endpoint, capture);
      ::close(endpoint);
    }
    ::close(client);
  }
}

void Tee::pass(int client, int endpoint, Capture& capture) {
  sendAtOnce(client);
  sendAtOnce(endpoint);
  Connection connection(capture);
  std::array<pollfd, 2> sides{pollfd{client, POLLIN, 0}, pollfd{endpoint, POLLIN, 0}};
  while ((sides[0].fd >= 0 || sides[1].fd >= 0) && ::poll(sides.data(), sides.size(), -1) > 0) {
    for (const Side side : {Side::kClient, Side::kServer}) {
      const bool up = side == Side::kClient;
      pollfd& from = sides[up ? 0 : 1];
      if (from.fd < 0 || from.revents == 0) {
        continue;
      }
      const std::string piece = receivePiece(from.fd);
      if (piece.empty()) {
        ::shutdown(up ? endpoint : client, SHUT_WR);
        from.fd = -1;
        continue;
      }
      connection.send(side, piece);
      (up ? asked_ : answered_) += piece;
      sendAll(up ? endpoint : client, piece);
    }
  }
}

}  // namespace qov::test
