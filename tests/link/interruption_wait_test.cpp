// What an interruption does to a wait, also at the very moment at which that begins or ends.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <functional>
#include <thread>

#include "link/interruption.h"
#include "tests/support/latch.h"
#include "tests/support/sleeping_thread.h"

namespace qov::test {
namespace {

/// What the thread does before it shuts a socket down.
thread_local std::function<void()> beforeShutdown;
std::atomic<int> shutDown{0};

/// Two sockets that are connected with each other.
class Pair {
 public:
  Pair() {
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_.data()), 0);
    const timeval generous{10, 0};
    EXPECT_EQ(::setsockopt(own(), SOL_SOCKET, SO_RCVTIMEO, &generous, sizeof generous), 0);
  }
  ~Pair() {
    ::close(ends_[0]);
    ::close(ends_[1]);
  }
  Pair(const Pair&) = delete;
  Pair& operator=(const Pair&) = delete;

  int own() const { return ends_[0]; }
  bool isOpen() const { return ::send(own(), "", 1, MSG_NOSIGNAL) == 1; }
  ssize_t receive() const {
    char byte = 0;
    return ::recv(own(), &byte, 1, 0);
  }

 private:
  std::array<int, 2> ends_{-1, -1};
};

TEST(WaitForASocket, ThatHasEndedKeepsItsSocket) {
  const Pair sockets;
  Interruption interruption;
  Interruption::Wait wait(interruption, sockets.own());
  EXPECT_TRUE(wait.end());
  interruption.set();
  EXPECT_TRUE(sockets.isOpen());
}

TEST(WaitForASocket, ThatIsInterruptedLosesItsSocketAlsoWhenThatIsOverByItsEnd) {
  const Pair sockets;
  Interruption interruption;
  Interruption::Wait wait(interruption, sockets.own());
  interruption.set();
  interruption.clear();
  EXPECT_FALSE(wait.end());
  EXPECT_FALSE(sockets.isOpen());
}

TEST(WaitForASocket, IsEndedWheneverTheInterruptionComes) {
  constexpr int kRounds = 20000;
  // So that the two meet at different places.
  constexpr int kSteps = 200;
  Interruption interruption;
  std::atomic<int> begun{-1};
  std::atomic<int> interrupted{-1};
  std::thread interrupting([&] {
    for (int round = 0; round < kRounds; ++round) {
      while (begun < round) {
        std::this_thread::yield();
      }
      interruption.set();
      interrupted = round;
    }
  });
  for (int round = 0; round < kRounds; ++round) {
    const Pair sockets;
    begun = round;
    for (int step = 0; step < round % kSteps; ++step) {
      static_cast<void>(begun.load());
    }
    {
      Interruption::Wait wait(interruption, sockets.own());
      if (!wait.isInterrupted()) {
        EXPECT_EQ(sockets.receive(), 0) << "slept on";
      }
      EXPECT_FALSE(wait.end());
    }
    while (interrupted < round) {
      std::this_thread::yield();
    }
    interruption.clear();
  }
  interrupting.join();
}

TEST(WaitForASocket, EndsBehindAShutdownThatHasBegun) {
  const Pair sockets;
  Interruption interruption;
  Latch begun;
  std::atomic<bool> ending{false};
  Interruption::Wait wait(interruption, sockets.own());
  std::thread interrupting([&, waiting = ::gettid()] {
    beforeShutdown = [&] {
      begun.count();
      waitForThread([&] { return ending && sleeps(waiting); }, "waited for the shutdown");
    };
    interruption.set();
  });
  EXPECT_TRUE(begun.waitFor());
  shutDown = 0;
  ending = true;
  EXPECT_FALSE(wait.end());
  EXPECT_EQ(shutDown, 1) << "the socket's number may be another's by now";
  interrupting.join();
}

}  // namespace
}  // namespace qov::test

// In place of the system's, for the libraries, too.
extern "C" int shutdown(int socket, int how) {
  using namespace qov::test;
  if (beforeShutdown) {
    beforeShutdown();
  }
  const long result = ::syscall(SYS_shutdown, socket, how);
  ++shutDown;
  return static_cast<int>(result);
}
