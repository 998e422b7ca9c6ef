#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <thread>

#include "tests/link/link_fixture.h"
#include "tests/support/sleeping_thread.h"

using ::testing::IsEmpty;

namespace qov::test {
namespace {

std::atomic<int> handled{0};

/// A handler without SA_RESTART for SIGUSR1, with which other threads interrupt the test's.
class Signals : public LinkTest {
 protected:
  Signals() {
    struct sigaction action {};
    action.sa_handler = [](int) { ++handled; };
    // It stays: after a failure the peer may still interrupt.
    ::sigaction(SIGUSR1, &action, nullptr);
  }

  /// Interrupts the test's thread where it sleeps, and waits until it does so again.
  void interrupt() {
    for (int i = 0; i < 3; ++i) {
      const int count = handled;
      waitForThread([this] { return sleeps(id_); }, "slept");
      ::pthread_kill(thread_, SIGUSR1);
      waitForThread([&] { return handled > count; }, "was interrupted");
    }
    waitForThread([this] { return sleeps(id_); }, "slept again");
  }

 private:
  const pthread_t thread_ = ::pthread_self();
  const pid_t id_ = ::gettid();
};

TEST_F(Signals, LeaveTheWaitForAnAnswerAlone) {
  plays({[this](PeerConnection& connection) {
    const Message answer = answerTo(connection.request(), recordBytes(77, 0));
    interrupt();
    connection.send({answer.begin(), answer.begin() + 30});
    interrupt();
    connection.send({answer.begin() + 30, answer.end()});
  }});
  connects();
  EXPECT_EQ(sends(), 0U);
  EXPECT_EQ(package.count(), 1U);
  EXPECT_THAT(records("ERR"), IsEmpty());
}

TEST_F(Signals, LeaveASendAlone) {
  std::atomic<bool> interrupted{false};
  plays({[&](PeerConnection& connection) {
    // Sooner or later a send finds no room, and sleeps.
    interrupt();
    interrupted = true;
    connection.ignoreAll();
  }});
  connects(endless());
  const Message large(1U << 20);
  unsigned int result = 0;
  while (result == 0 && !interrupted) {
    result = link->sendMsg_i(large.data(), static_cast<unsigned int>(large.size()));
  }
  EXPECT_EQ(result, 0U);
  EXPECT_THAT(records(), IsEmpty());
  link.reset();
  peer.join();
}

TEST_F(Signals, LeaveConnectingAlone) {
  QuietPort quiet;
  TestLink::Limits limits;
  limits.connect.set(60);
  std::thread other([&] {
    interrupt();
    quiet.makeRoom();
  });
  const TestLink made(quiet.port(), limits);
  other.join();
  EXPECT_THAT(records("ERR"), IsEmpty());
  EXPECT_EQ(records("INFO").size(), 1U);
}

}  // namespace
}  // namespace qov::test
