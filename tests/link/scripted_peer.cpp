#include "tests/link/scripted_peer.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <stdexcept>

#include <qovpub/qov_msg_head.h>

namespace qov::test {
namespace {

struct ConnectionEnded {};

template <class Field>
Field fieldOf(const Message& message, std::size_t offset) {
  Field field;
  std::memcpy(&field, message.data() + offset, sizeof field);
  return field;
}

template <class Field>
void setField(Message& message, std::size_t offset, Field field) {
  std::memcpy(message.data() + offset, &field, sizeof field);
}

/// A socket bound to a free port of the loopback interface.
int boundSocket(std::uint16_t& port) {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (::bind(socket, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    throw std::runtime_error("cannot bind to the loopback interface");
  }
  port = ntohs(address.sin_port);
  return socket;
}

int connectedSocket(std::uint16_t port) {
  const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    throw std::runtime_error("cannot connect to the loopback interface");
  }
  return socket;
}

}  // namespace

std::uint16_t serialOf(const Message& message) {
  return fieldOf<std::uint16_t>(message, offsetof(TLVMsgHeadV3, ser_));
}

Message answerTo(const Message& request, const tests::Bytes& records, std::uint32_t ret) {
  Message answer = tests::Bytes().headV3(records.size()).data();
  setField(answer, offsetof(TLVMsgHeadV3, ser_), serialOf(request));
  setField(answer, offsetof(TLVMsgHeadV3, ret_), ret);
  answer.insert(answer.end(), records.data().begin(), records.data().end());
  return answer;
}

tests::Bytes recordBytes(std::uint64_t cmd, int status) {
  constexpr unsigned int kEnum = 6;
  tests::Bytes bytes;
  if (status < 0) {
    bytes.record(cmd, 0);
  } else {
    bytes.record(cmd, 5).cell(4095, kEnum, 1).u8(static_cast<unsigned int>(status));
  }
  return bytes;
}

Message PeerConnection::head() {
  Message message(sizeof(TLVMsgHeadV3));
  receive(message.data(), message.size());
  return message;
}

Message PeerConnection::request() {
  Message message = head();
  const auto body = fieldOf<std::uint32_t>(message, offsetof(TLVMsgHeadV3, len_));
  message.resize(message.size() + body);
  receive(message.data() + sizeof(TLVMsgHeadV3), body);
  keep_(message);
  return message;
}

void PeerConnection::receive(unsigned char* to, std::size_t length) {
  while (length > 0) {
    const ssize_t received = ::recv(socket_, to, length, 0);
    if (received <= 0) {
      throw ConnectionEnded();
    }
    to += received;
    length -= static_cast<std::size_t>(received);
  }
}

void PeerConnection::send(const Message& bytes) {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t taken = ::send(socket_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (taken <= 0) {
      throw ConnectionEnded();
    }
    sent += static_cast<std::size_t>(taken);
  }
}

void PeerConnection::trickle(const Message& bytes) {
  for (const unsigned char byte : bytes) {
    send({byte});
  }
}

void PeerConnection::crawl(const Message& bytes) {
  constexpr int kPause = 2;
  for (const unsigned char byte : bytes) {
    send({byte});
    ::poll(nullptr, 0, kPause);
  }
}

void PeerConnection::answerAll(const tests::Bytes& records) {
  for (;;) {
    answer(records);
  }
}

void PeerConnection::ignoreAll() {
  Message part(1U << 16);
  while (::recv(socket_, part.data(), part.size(), 0) > 0) {
  }
}

void PeerConnection::waitForEnd() {
  pollfd entry{socket_, POLLRDHUP, 0};
  ::poll(&entry, 1, -1);
}

void PeerConnection::reset() {
  const linger none{1, 0};
  ::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &none, sizeof none);
}

ScriptedPeer::ScriptedPeer() : listener_(boundSocket(port_)) {}

void ScriptedPeer::open(std::vector<Script> scripts) {
  constexpr int kBacklog = 16;
  ::listen(listener_, kBacklog);
  thread_ = std::thread([this, toPlay = std::move(scripts)] { run(toPlay); });
}

ScriptedPeer::~ScriptedPeer() {
  if (thread_.joinable()) {
    // Ends an accept() that nobody connects to any more.
    ::shutdown(listener_, SHUT_RDWR);
    thread_.join();
  }
  ::close(listener_);
}

std::string ScriptedPeer::address() const {
  return "127.0.0.1:" + std::to_string(port_);
}

void ScriptedPeer::join() {
  thread_.join();
}

std::vector<Message> ScriptedPeer::requests() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return requests_;
}

int ScriptedPeer::connections() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return connections_;
}

void ScriptedPeer::run(const std::vector<Script>& scripts) {
  for (std::size_t i = 0; i < scripts.size(); ++i) {
    const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0) {
      return;
    }
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      ++connections_;
    }
    if (i + 1 == scripts.size()) {
      ::shutdown(listener_, SHUT_RDWR);
    }
    play(socket, scripts[i]);
    ::close(socket);
  }
}

void ScriptedPeer::play(int socket, const Script& script) {
  const int on = 1;
  ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  PeerConnection connection(socket, [this](const Message& message) {
    const std::lock_guard<std::mutex> lock(mutex_);
    requests_.push_back(message);
  });
  try {
    script(connection);
  } catch (const ConnectionEnded&) {
    // The link has had enough.
  }
}

QuietPort::QuietPort()
    : listener_(boundSocket(port_)), waiting_((::listen(listener_, 0), connectedSocket(port_))) {}

QuietPort::~QuietPort() {
  ::close(waiting_);
  ::close(listener_);
}

void QuietPort::makeRoom() {
  ::close(::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC));
}

}  // namespace qov::test
