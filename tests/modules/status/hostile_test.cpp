// Clients that do what they can to do harm. Each of them ends in a closed connection and one
// counter, and a good client is served afterwards.
//   QOV_HOSTILE_SEED   of the cases, as a failure prints it; another one each time without
//   QOV_HOSTILE_CASES  how many; without, 2,000 or what comes in 3 seconds
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <iostream>
#include <optional>
#include <random>
#include <string>
#include <thread>

#include "modules/status/answers.h"
#include "modules/status/level.h"
#include "tests/modules/status/served_socket.h"
#include "tests/support/counts.h"
#include "tests/support/process_end.h"
#include "tests/support/this_process.h"

namespace qov::test {
namespace {

using status::Client;
using status::ClientCounts;
using status::Server;

constexpr std::uint64_t kUsualCases = 2000;
constexpr std::chrono::seconds kUsualTime{3};
constexpr std::chrono::seconds kPatience{90};
constexpr std::chrono::milliseconds kShortPatience{200};
/// Deeper than what is taken, which is 16.
constexpr std::size_t kDeep = 20;

const std::array<std::string, 7> kRequests{R"({"request": "status"})",
                                           R"({"request": "modules"})",
                                           R"({"request": "pending", "more": [1, {"a": null}]})",
                                           R"({"request": "slow"})",
                                           R"({"request": "metrics"})",
                                           R"({"request": "log-level", "level": 7})",
                                           R"({"request": "nothing"})"};

std::optional<std::uint64_t> numberIn(const char* name) {
  const char* const text = std::getenv(name);
  return text != nullptr ? std::optional(std::strtoull(text, nullptr, 0)) : std::nullopt;
}

/// What comes is the same for the same seed.
class Input {
 public:
  explicit Input(std::uint64_t seed) : random_(seed) {}

  std::size_t below(std::size_t limit) { return static_cast<std::size_t>(random_() % limit); }
  char byte() { return static_cast<char>(below(256)); }

  std::string bytes(std::size_t most) {
    std::string made(1 + below(most), '\0');
    for (char& one : made) {
      one = byte();
    }
    return made;
  }

  const std::string& request() { return kRequests[below(kRequests.size())]; }

  /// A request with some bytes changed, put in, taken out or repeated.
  std::string changedRequest() {
    std::string made = request();
    for (std::size_t changes = 1 + below(4); changes-- > 0;) {
      const std::size_t at = below(made.size());
      switch (below(4)) {
        case 0:
          made[at] = byte();
          break;
        case 1:
          made.insert(at, 1, byte());
          break;
        case 2:
          made.insert(at, made.substr(at, 1 + below(20)));
          break;
        default:
          made.erase(at, 1 + below(made.size()));
      }
      made += made.empty() ? " " : "";
    }
    return made;
  }

  /// What JSON is made of, in no order.
  std::string tokens() {
    static const std::array<std::string, 20> kTokens{"{",           "}",
                                                     "[",           "]",
                                                     ":",           ",",
                                                     "\"",          "null",
                                                     "1e999",       "-",
                                                     "\\u0000",     "\\ud800",
                                                     "\xff",        std::string(1, '\0'),
                                                     "//",          "\"\\\"",
                                                     "0x1",         "99999999999999999999",
                                                     "\"request\"", "\xc0\xaf"};
    std::string made;
    for (std::size_t count = 1 + below(60); count-- > 0;) {
      made += kTokens[below(kTokens.size())];
    }
    return made;
  }

  std::string tooLong() {
    const std::string begin = below(2) == 0 ? request() : std::string(1, "x[ \0"[below(4)]);
    const std::size_t size = Client::kLongestRequest + 1 + below(20000);
    return begin + std::string(size - begin.size(), begin.back() == '}' ? ' ' : begin.back());
  }

  std::string nested() {
    const bool isArray = below(2) == 0;
    const std::size_t depth = kDeep + below(600);
    std::string made = R"({"request": "status", "more": )";
    for (std::size_t i = 0; i < depth; ++i) {
      made += isArray ? "[" : "{\"a\":";
    }
    return made + (below(2) == 0 ? std::string(depth, isArray ? ']' : '}') + "}" : "");
  }

 private:
  std::mt19937_64 random_;
};

class StatusOfHostileClients : public ::testing::Test {
 protected:
  using Count = std::atomic<std::uint64_t> ClientCounts::*;

  StatusOfHostileClients()
      : seed_(numberIn("QOV_HOSTILE_SEED").value_or(std::random_device()())), input_(seed_) {
    thisProcess();
    std::cout << "QOV_HOSTILE_SEED=" << seed_ << std::endl;
  }
  /// A changed request may have set it.
  ~StatusOfHostileClients() override { status::setLogLevel(level_); }

  static std::uint64_t endedIn(const ClientCounts& counts) {
    return counts.refused + counts.tooMany + counts.malformed + counts.tooSlow + counts.cutOff;
  }

  /// What `act` does ends in this one counter.
  template <class Act>
  void endsIn(Count count, const ServedSocket& socket, Act act) {
    const std::uint64_t all = endedIn(socket.counts());
    const std::uint64_t before = socket.counts().*count;
    act();
    const auto limit = std::chrono::steady_clock::now() + kPatience;
    while (endedIn(socket.counts()) == all && std::chrono::steady_clock::now() < limit) {
      std::this_thread::yield();
    }
    EXPECT_EQ(endedIn(socket.counts()), all + 1);
    EXPECT_EQ(socket.counts().*count, before + 1);
  }

  void isMalformed(const ServedSocket& socket, const std::string& bytes) {
    endsIn(&ClientCounts::malformed, socket, [&] {
      StatusClient client = socket.client();
      client.send(bytes);
      EXPECT_TRUE(client.isClosed());
    });
  }

  /// It may happen to be a request.
  void isAnsweredOrMalformed(const ServedSocket& socket, const std::string& bytes) {
    const std::uint64_t all = endedIn(socket.counts());
    const std::uint64_t malformed = socket.counts().malformed;
    StatusClient client = socket.client();
    // What follows a line end in it is a request of its own.
    client.send(bytes.substr(0, bytes.find('\n')) + "\n");
    try {
      EXPECT_TRUE(client.receive().is_object());
      EXPECT_EQ(endedIn(socket.counts()), all);
    } catch (const std::runtime_error&) {
      EXPECT_EQ(endedIn(socket.counts()), all + 1);
      EXPECT_EQ(socket.counts().malformed, malformed + 1);
    }
  }

  void comesByteByByte(const ServedSocket& socket) {
    endsIn(&ClientCounts::malformed, socket, [&] {
      StatusClient client = socket.client();
      for (const char byte : "}" + input_.request() + "\n") {
        client.send(std::string(1, byte));
      }
      EXPECT_TRUE(client.isClosed());
    });
  }

  void endsInTheMiddle(const ServedSocket& socket) {
    const std::string& request = input_.request();
    endsIn(&ClientCounts::cutOff, socket, [&] {
      StatusClient client = socket.client();
      client.send(request.substr(0, 1 + input_.below(request.size() - 1)));
      if (input_.below(2) == 0) {
        client.shutDown();
        EXPECT_TRUE(client.isClosed());
      }
    });
  }

  void leavesItsAnswer(const ServedSocket& socket) {
    endsIn(&ClientCounts::cutOff, socket, [&] { socket.client().send(input_.request() + "\n"); });
  }

  void sendsManyAtOnce(const ServedSocket& socket) {
    endsIn(&ClientCounts::malformed, socket, [&] {
      StatusClient client = socket.client();
      const std::size_t good = input_.below(30);
      std::string requests;
      for (std::size_t i = 0; i < good; ++i) {
        requests += input_.request() + "\n";
      }
      client.send(requests + "}\n" + requests);
      for (std::size_t i = 0; i < good; ++i) {
        client.receive();
      }
      EXPECT_TRUE(client.isClosed());
    });
  }

  void connectsTooOften(const ServedSocket& socket) {
    std::deque<StatusClient> clients;
    while (clients.size() < Server::kMostClients) {
      clients.push_back(socket.client());
      clients.back().ask({{"request", "modules"}});
    }
    for (std::size_t more = 1 + input_.below(4); more-- > 0;) {
      endsIn(&ClientCounts::tooMany, socket, [&] { EXPECT_TRUE(socket.client().isClosed()); });
    }
  }

  void doesHarm(const ServedSocket& socket) {
    const std::size_t percent = input_.below(100);
    if (percent < 20) {
      isAnsweredOrMalformed(socket, input_.changedRequest());
    } else if (percent < 40) {
      isAnsweredOrMalformed(socket, input_.tokens());
    } else if (percent < 50) {
      isMalformed(socket, "}" + input_.bytes(600) + "\n");
    } else if (percent < 60) {
      isMalformed(socket, input_.tooLong() + (input_.below(2) == 0 ? "\n" : ""));
    } else if (percent < 70) {
      isMalformed(socket, input_.nested() + "\n");
    } else if (percent < 75) {
      comesByteByByte(socket);
    } else if (percent < 85) {
      endsInTheMiddle(socket);
    } else if (percent < 92) {
      leavesItsAnswer(socket);
    } else if (percent < 98) {
      sendsManyAtOnce(socket);
    } else {
      connectsTooOften(socket);
    }
  }

  /// None of these goes on before it is dropped: one says nothing, one half of something, one says
  /// it byte by byte, and two do not read what they are answered.
  void areSlow(const ServedSocket& socket) {
    const std::uint64_t all = endedIn(socket.counts());
    const std::uint64_t before = socket.counts().tooSlow;
    std::array<StatusClient, 5> clients{socket.client(), socket.client(), socket.client(),
                                        socket.client(), socket.client()};
    clients[1].send(input_.request().substr(0, 5));
    clients[3].send(input_.request() + "\n");
    clients[4].send(input_.request() + "\n" + input_.request() + "\n" + input_.request());
    EXPECT_TRUE(waitUntil([&] {
      clients[2].send(std::string(1, static_cast<char>('a' + input_.below(26))));
      return socket.counts().tooSlow == before + clients.size();
    }));
    EXPECT_EQ(endedIn(socket.counts()), all + clients.size());
    for (StatusClient& client : clients) {
      client.drain();
    }
  }

  /// A good client is served, and nothing of the others is left.
  void isAsBefore(const ServedSocket& socket, std::ptrdiff_t descriptors, std::ptrdiff_t threads) {
    EXPECT_TRUE(waitUntil([&] {
      try {
        return socket.client().ask({{"request", "modules"}}).contains("modules");
      } catch (const std::runtime_error&) {
        return false;
      }
    }));
    EXPECT_TRUE(waitUntil([&] { return entriesOf("/proc/self/fd") == descriptors; }));
    EXPECT_EQ(entriesOf("/proc/self/task"), threads);
  }

  const std::uint64_t seed_;
  Input input_;

 private:
  const int level_ = status::logLevel();
};

TEST_F(StatusOfHostileClients, EachEndsInOneCounter) {
  status::Answers answers(0);
  const ServedSocket socket(
      [&](std::string_view request, const ClientCounts& clients, auto&... more) {
        return answers.answer(request, clients, more...);
      });
  const std::ptrdiff_t descriptors = entriesOf("/proc/self/fd");
  const std::ptrdiff_t threads = entriesOf("/proc/self/task");
  const std::optional<std::uint64_t> asked = numberIn("QOV_HOSTILE_CASES");
  const auto end = std::chrono::steady_clock::now() + kUsualTime;
  std::uint64_t done = 0;
  while (done < asked.value_or(kUsualCases) && !HasFailure() &&
         (asked || std::chrono::steady_clock::now() < end)) {
    SCOPED_TRACE("QOV_HOSTILE_SEED=" + std::to_string(seed_) + ", case " + std::to_string(done));
    doesHarm(socket);
    ++done;
  }
  std::cout << done << " cases" << std::endl;
  isAsBefore(socket, descriptors, threads);
}

TEST_F(StatusOfHostileClients, SlowOnesEndInOneCounterEach) {
  constexpr std::uint64_t kCasesOfARound = 1000;
  const std::string answer = R"({"modules": ")" + std::string(2000000, 'x') + "\"}\n";
  const ServedSocket socket([&](std::string_view, const auto&...) { return std::optional(answer); },
                            kShortPatience);
  const std::ptrdiff_t descriptors = entriesOf("/proc/self/fd");
  const std::ptrdiff_t threads = entriesOf("/proc/self/task");
  const std::uint64_t cases = numberIn("QOV_HOSTILE_CASES").value_or(kUsualCases);
  for (std::uint64_t round = 0; round < cases / kCasesOfARound && !HasFailure(); ++round) {
    areSlow(socket);
  }
  isAsBefore(socket, descriptors, threads);
}

}  // namespace
}  // namespace qov::test
