#include "tests/modules/status/scripted_agent.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <utility>

namespace qov::test {

ScriptedAgent::ScriptedAgent(std::string path, Answer answer)
    : path_(std::move(path)), answer_(std::move(answer)) {
  listen();
}

void ScriptedAgent::listen() {
  listener_ = status::Descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path_.copy(address.sun_path, sizeof address.sun_path - 1);
  if (::bind(listener_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(listener_.get(), 8) != 0) {
    throw std::runtime_error("cannot listen at " + path_);
  }
  thread_ = std::thread([this] { serve(); });
}

void ScriptedAgent::goAway() {
  if (thread_.joinable()) {
    ::shutdown(listener_.get(), SHUT_RDWR);
    thread_.join();
  }
  listener_ = status::Descriptor();
  ::unlink(path_.c_str());
}

void ScriptedAgent::serve() {
  while (true) {
    const status::Descriptor client(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (client.get() < 0) {
      return;
    }
    serve(client);
  }
}

void ScriptedAgent::serve(const status::Descriptor& client) {
  std::array<char, 4096> bytes;
  ssize_t count = 0;
  while ((count = ::recv(client.get(), bytes.data(), bytes.size(), 0)) > 0) {
    if (standsStill_) {
      isAskedInVain_ = true;
      continue;
    }
    const std::string line = answer_({bytes.data(), static_cast<std::size_t>(count)}) + "\n";
    static_cast<void>(!::send(client.get(), line.data(), line.size(), MSG_NOSIGNAL));
  }
}

}  // namespace qov::test
