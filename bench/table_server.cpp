#include "bench/table_server.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <qovpub/qov_msg_head.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

void require(bool done, const char* what) {
  if (!done) {
    std::perror(what);
    std::exit(1);
  }
}

sockaddr_in loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

void sendAtOnce(int socket) {
  const int on = 1;
  require(::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) == 0, "TCP_NODELAY");
}

/// For calls that take longer.
void giveUpAfter(int socket, time_t seconds) {
  const timeval limit{seconds, 0};
  require(::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == 0 &&
              ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit) == 0,
          "SO_RCVTIMEO, SO_SNDTIMEO");
}

bool receive(int socket, unsigned char* to, std::size_t size) {
  return ::recv(socket, to, size, MSG_WAITALL) == static_cast<ssize_t>(size);
}

bool send(int socket, const TableServer::Message& message) {
  return ::send(socket, message.data(), message.size(), MSG_NOSIGNAL) ==
         static_cast<ssize_t>(message.size());
}

void setSerial(TableServer::Message& message, std::uint16_t serial) {
  std::memcpy(message.data() + offsetof(TLVMsgHeadV3, ser_), &serial, sizeof serial);
}

TLVMsgHeadV3 headOf(const TableServer::Message& message) {
  TLVMsgHeadV3 head;
  std::memcpy(&head, message.data(), sizeof head);
  return head;
}

/// Whether the first `size` bytes are the whole message.
bool isWhole(const TableServer::Message& message, std::size_t size) {
  return size >= sizeof(TLVMsgHeadV3) && size >= sizeof(TLVMsgHeadV3) + headOf(message).len_;
}

}  // namespace

TableServer::TableServer(std::vector<Message> answers)
    : answers_(std::move(answers)), listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address = loopback(0);
  socklen_t size = sizeof address;
  require(::bind(listener_, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
              ::listen(listener_, SOMAXCONN) == 0 &&
              ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) == 0,
          "TableServer");
  port_ = ntohs(address.sin_port);
  thread_ = std::thread([this] { accept(); });
}

/// The clients have gone by then.
TableServer::~TableServer() {
  ::shutdown(listener_, SHUT_RDWR);
  thread_.join();
  for (std::thread& connection : connections_) {
    connection.join();
  }
  ::close(listener_);
}

void TableServer::accept() {
  for (;;) {
    const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0) {
      return;
    }
    sendAtOnce(socket);
    connections_.emplace_back([this, socket] {
      serve(socket);
      ::close(socket);
    });
  }
}

void TableServer::serve(int socket) const {
  std::vector<Message> answers = answers_;
  TLVMsgHeadV3 head;
  Message body;
  for (std::size_t next = 0;; next = (next + 1) % answers.size()) {
    if (!receive(socket, reinterpret_cast<unsigned char*>(&head), sizeof head)) {
      return;
    }
    body.resize(head.len_);
    if (head.len_ > 0 && !receive(socket, body.data(), body.size())) {
      return;
    }
    Message& answer = answers[next];
    setSerial(answer, head.ser_);
    if (!send(socket, answer)) {
      return;
    }
  }
}

RawClient::RawClient(std::uint16_t port)
    : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  const sockaddr_in address = loopback(port);
  require(::connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0,
          "RawClient");
  sendAtOnce(socket_);
  giveUpAfter(socket_, 30);
}

RawClient::~RawClient() {
  ::close(socket_);
}

void RawClient::roundTrip(TableServer::Message& request, TableServer::Message& answer) {
  setSerial(request, ++serial_);
  require(send(socket_, request), "send");
  for (std::size_t have = 0; !isWhole(answer, have);) {
    const ssize_t received = ::recv(socket_, answer.data() + have, answer.size() - have, 0);
    require(received > 0, "recv");
    have += static_cast<std::size_t>(received);
  }
  require(headOf(answer).ser_ == serial_, "serial number");
}
