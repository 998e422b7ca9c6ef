#include "tests/modules/mqtt/scripted_broker.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <stdexcept>

namespace qov::test {
namespace {

constexpr int kPatienceMs = 90000;

}  // namespace

ScriptedBroker::ScriptedBroker()
    : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)),
      context_(nullptr, SSL_CTX_free),
      tls_(nullptr, SSL_free) {
  // The client may go while it is sent something.
  std::signal(SIGPIPE, SIG_IGN);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (::bind(listener_, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
      ::listen(listener_, 1) != 0 ||
      ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    throw std::runtime_error("no free port");
  }
  port_ = ntohs(address.sin_port);
}

ScriptedBroker::ScriptedBroker(const std::string& certificate, const std::string& key)
    : ScriptedBroker() {
  context_.reset(SSL_CTX_new(TLS_server_method()));
  if (SSL_CTX_use_certificate_file(context_.get(), certificate.c_str(), SSL_FILETYPE_PEM) != 1 ||
      SSL_CTX_use_PrivateKey_file(context_.get(), key.c_str(), SSL_FILETYPE_PEM) != 1) {
    throw std::runtime_error(certificate + ", " + key + ": no certificate");
  }
}

ScriptedBroker::~ScriptedBroker() {
  hangUp();
  ::close(listener_);
}

unsigned char ScriptedBroker::takeClient() {
  hangUp();
  pollfd coming{listener_, POLLIN, 0};
  if (::poll(&coming, 1, kPatienceMs) != 1) {
    throw std::runtime_error("no client comes");
  }
  client_ = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
  const timeval patience{kPatienceMs / 1000, 0};
  ::setsockopt(client_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
  if (context_ != nullptr) {
    tls_.reset(SSL_new(context_.get()));
    SSL_set_fd(tls_.get(), client_);
    if (SSL_accept(tls_.get()) != 1) {
      throw std::runtime_error("the client does not take the certificate");
    }
  }
  // The first byte and the length, the protocol's name and version.
  constexpr std::size_t kFlags = 2 + 6 + 1;
  return static_cast<unsigned char>(read().at(kFlags));
}

std::string ScriptedBroker::bytes(std::size_t count) {
  std::string all(count, '\0');
  for (std::size_t done = 0; done < count;) {
    char* const to = all.data() + done;
    const auto length = static_cast<int>(count - done);
    const auto got = tls_ != nullptr ? SSL_read(tls_.get(), to, length)
                                     : static_cast<int>(::recv(client_, to, count - done, 0));
    if (got <= 0) {
      throw std::runtime_error("the client is gone, or silent");
    }
    done += static_cast<std::size_t>(got);
  }
  return all;
}

std::string ScriptedBroker::read() {
  const std::string head = bytes(2);
  constexpr unsigned char kLongest = 127;
  const auto length = static_cast<unsigned char>(head[1]);
  if (length > kLongest) {
    throw std::runtime_error("a packet that is too long for this broker");
  }
  return head + bytes(length);
}

std::string ScriptedBroker::readUntil(unsigned char first) {
  std::string packet = read();
  while (static_cast<unsigned char>(packet.front()) != first) {
    packet = read();
  }
  return packet;
}

void ScriptedBroker::send(const std::string& bytes) {
  const auto length = static_cast<int>(bytes.size());
  const auto sent = tls_ != nullptr
                        ? SSL_write(tls_.get(), bytes.data(), length)
                        : static_cast<int>(::send(client_, bytes.data(), bytes.size(), 0));
  if (sent != length) {
    throw std::runtime_error("the client takes nothing");
  }
}

bool ScriptedBroker::isLeft() {
  try {
    for (;;) {
      read();
    }
  } catch (const std::runtime_error&) {
    char byte = 0;
    return ::recv(client_, &byte, 1, MSG_DONTWAIT) == 0;
  }
}

void ScriptedBroker::hangUp() {
  tls_.reset();
  if (client_ >= 0) {
    ::close(client_);
  }
  client_ = -1;
}

std::string packetOf(unsigned char first, const std::string& rest) {
  return std::string{static_cast<char>(first), static_cast<char>(rest.size())} + rest;
}

std::string connack(bool hadSession, const std::string& properties) {
  constexpr unsigned char kConnack = 0x20;
  const char flags = hadSession ? '\1' : '\0';
  const char reason = '\0';
  return packetOf(kConnack,
                  std::string{flags, reason, static_cast<char>(properties.size())} + properties);
}

std::string publishOf(const std::string& properties) {
  constexpr unsigned char kPublish = 0x30;
  return packetOf(kPublish,
                  std::string{'\0', '\1', 'a', static_cast<char>(properties.size())} + properties);
}

}  // namespace qov::test
