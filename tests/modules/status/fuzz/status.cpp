// The input is what a client of the status socket sends until it has sent all.
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>

#include "modules/common/json_object.h"
#include "modules/status/answers.h"
#include "modules/status/client.h"
#include "modules/status/level.h"
#include "tests/support/fuzz.h"
#include "tests/support/this_process.h"

using namespace qov;
using status::Client;
using status::Descriptor;
using test::require;

namespace {

status::Answers& answers() {
  // A request may have the process send itself the signal, which would end it.
  static const auto before = ::signal(SIGUSR1, SIG_IGN);
  test::thisProcess();
  static status::Answers made(0);
  static_cast<void>(before);
  return made;
}

void takeAll(int socket, std::string& text) {
  std::array<char, 65536> bytes;
  for (ssize_t size = 1; size > 0; text.append(bytes.data(), static_cast<std::size_t>(size))) {
    size = std::max<ssize_t>(::recv(socket, bytes.data(), bytes.size(), 0), 0);
  }
}

void checkLines(std::string lines, std::size_t count) {
  for (; !lines.empty(); --count) {
    require(lines.find('\n') != std::string::npos && count > 0, "each request has one line");
    try {
      common::parseJson(test::takeLine(lines));
    } catch (const common::BadJson&) {
      require(false, "an answer is JSON");
    }
  }
  require(count == 0, "each request has a line");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const status::ClientCounts counts;
  static const int level = (answers(), status::logLevel());
  test::silence();
  std::array<int, 2> ends{};
  require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data()) == 0,
          "there is a pair of sockets");
  const Descriptor far(ends[0]);
  Client client(Descriptor(ends[1]), std::chrono::hours(1));
  require(::send(far.get(), data, size, 0) == static_cast<ssize_t>(size), "the input is sent");
  ::shutdown(far.get(), SHUT_WR);
  std::string replies;
  std::size_t answered = 0;
  auto state = Client::State::kGoesOn;
  while (state == Client::State::kGoesOn) {
    state = client.advance([&](std::string_view request) {
      auto line = answers().answer(request, counts, client.kept());
      answered += line ? 1 : 0;
      return line;
    });
    takeAll(far.get(), replies);
  }
  checkLines(replies, answered);
  const auto lines = static_cast<std::size_t>(std::count(data, data + size, '\n'));
  const bool allTaken = answered == lines && (size == 0 || data[size - 1] == '\n');
  require((state == Client::State::kGone) == allTaken,
          "who is answered every line is gone at last");
  status::setLogLevel(level);
  return 0;
}
