// The input is what a client of the status socket sends until it has sent all.
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <functional>
#include <string_view>

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
  static std::array<char, 65536> bytes;
  for (ssize_t size = 1; size > 0; text.append(bytes.data(), static_cast<std::size_t>(size))) {
    size = std::max<ssize_t>(::recv(socket, bytes.data(), bytes.size(), 0), 0);
  }
}

void checkJson(std::string_view line) {
  try {
    common::parseJson(line);
  } catch (const common::BadJson&) {
    require(false, "an answer is JSON");
  }
}

/// To parse long lines takes longer than all else, so not every input has it done.
void checkLines(std::string_view lines, std::size_t count, bool alsoLong) {
  constexpr std::size_t kLong = 300;
  for (; !lines.empty(); --count) {
    const std::size_t end = lines.find('\n');
    require(end != std::string_view::npos && count > 0, "each request has one line");
    if (end < kLong || alsoLong) {
      checkJson(lines.substr(0, end));
    }
    lines.remove_prefix(end + 1);
  }
  require(count == 0, "each request has a line");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const status::ClientCounts counts;
  // Requests set the level of the log, which is written to nothing.
  ACE_LOG_MSG->clr_flags(ACE_Log_Msg::STDERR);
  status::setLogLevel(status::kHighestLevel);
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
    if (client.events() == POLLOUT) {
      takeAll(far.get(), replies);
    }
  }
  takeAll(far.get(), replies);
  const std::string_view input(reinterpret_cast<const char*>(data), size);
  checkLines(replies, answered, std::hash<std::string_view>()(input) % 16 == 0);
  const auto lines = static_cast<std::size_t>(std::count(data, data + size, '\n'));
  const bool allTaken = answered == lines && (size == 0 || data[size - 1] == '\n');
  require((state == Client::State::kGone) == allTaken,
          "who is answered every line is gone at last");
  return 0;
}
