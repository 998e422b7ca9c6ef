#include "tests/tools/endpoint_client.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace qov::test {
namespace {

constexpr int kPatienceMs = 90000;
constexpr std::size_t kHeadSize = 28;
constexpr std::size_t kLengthOffset = 24;

bool readable(int socket, int milliseconds) {
  pollfd entry{socket, POLLIN, 0};
  return ::poll(&entry, 1, milliseconds) == 1;
}

sockaddr_in6 ipv6Loopback(std::uint16_t port) {
  sockaddr_in6 address = {};
  address.sin6_family = AF_INET6;
  address.sin6_port = htons(port);
  address.sin6_addr = in6addr_loopback;
  return address;
}

}  // namespace

std::string le(std::uint64_t value, int bytes) {
  std::string out;
  for (int i = 0; i < bytes; ++i) {
    out += static_cast<char>(value >> 8 * i & 0xFF);
  }
  return out;
}

std::string cell(unsigned tag, unsigned type, const std::string& value) {
  return le(tag << 4 | type, 2) + le(value.size(), 2) + value;
}

std::string number(unsigned tag, std::uint64_t value, int bytes) {
  return cell(tag, 3, le(value, bytes));
}

std::string text(unsigned tag, const std::string& value) {
  return cell(tag, 2, value + '\0');
}

std::string status(std::uint8_t value) {
  return cell(4095, 6, le(value, 1));
}

std::string record(std::uint64_t command, const std::string& cells) {
  return le(command, 8) + le(cells.size(), 2) + cells;
}

std::string message(std::uint16_t serial, const std::string& records, std::uint32_t result) {
  return "UUUU" + le(3, 4) + le(result, 4) + le(0x01020304, 4) + le(5, 2) + le(6, 2) + le(7, 2) +
         le(serial, 2) + le(records.size(), 4) + records;
}

EndpointClient::EndpointClient(std::uint16_t port, int room)
    : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  const int on = 1;
  ::setsockopt(socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  if (room != 0) {
    ::setsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
  }
  if (::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    close();
  }
}

bool hasIpv6Loopback() {
  const int socket = ::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in6 address = ipv6Loopback(0);
  const bool bound = socket >= 0 && ::bind(socket, reinterpret_cast<const sockaddr*>(&address),
                                           sizeof address) == 0;
  ::close(socket);
  return bound;
}

EndpointClient EndpointClient::byIpv6(std::uint16_t port) {
  EndpointClient client;
  client.socket_ = ::socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in6 address = ipv6Loopback(port);
  if (::connect(client.socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    client.close();
  }
  return client;
}

EndpointClient::EndpointClient(EndpointClient&& other) noexcept
    : socket_(std::exchange(other.socket_, -1)) {}

void EndpointClient::close() {
  if (socket_ >= 0) {
    ::close(socket_);
    socket_ = -1;
  }
}

void EndpointClient::send(const std::string& bytes) const {
  for (std::size_t sent = 0; sent < bytes.size();) {
    const ssize_t done = ::send(socket_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (done < 0) {
      throw std::runtime_error(std::string("cannot send: ") + std::strerror(errno));
    }
    sent += static_cast<std::size_t>(done);
  }
}

std::string EndpointClient::receive(std::size_t size) const {
  std::string bytes;
  std::array<char, 1 << 16> piece;
  while (bytes.size() < size && readable(socket_, kPatienceMs)) {
    const ssize_t got =
        ::recv(socket_, piece.data(), std::min(piece.size(), size - bytes.size()), 0);
    if (got <= 0) {
      break;
    }
    bytes.append(piece.data(), static_cast<std::size_t>(got));
  }
  return bytes;
}

std::string EndpointClient::receiveMessage() const {
  std::string bytes = receive(kHeadSize);
  if (bytes.size() == kHeadSize) {
    std::uint32_t length = 0;
    std::memcpy(&length, bytes.data() + kLengthOffset, sizeof length);
    bytes += receive(length);
  }
  return bytes;
}

bool EndpointClient::isSilent() const {
  return !readable(socket_, 0);
}

void EndpointClient::closeSending() const {
  ::shutdown(socket_, SHUT_WR);
}

}  // namespace qov::test
