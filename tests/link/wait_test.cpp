// What a link waits for and how long, in a program that sees every wait.
#include <poll.h>
#include <pthread.h>

#include <chrono>
#include <thread>

#include "tests/link/exchange_fixture.h"
#include "tests/link/scripted_waits.h"
#include "tests/support/latch.h"
#include "tests/support/sanitizers.h"

using ::testing::_;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;
using ::testing::SizeIs;

namespace qov::test {
namespace {

class Wait : public LinkTest {
 protected:
  /// Interrupts a wait, and calls resume() as soon as the system has ended it.
  InsteadOfWaits::Script interruptsAndResumes() {
    return [this](const InsteadOfWaits::Wait& real, int) {
      link->interrupt();
      const int ready = real();
      link->resume();
      return ready;
    };
  }
};

TEST_F(Wait, ThatIsInterruptedAndResumedIsNoConnection) {
  QuietPort quiet;
  quiet.makeRoom();
  link = std::make_unique<TestLink>(quiet.port(), endless());
  log.clear();
  const InsteadOfWaits interrupted(interruptsAndResumes());
  EXPECT_EQ(link->setupConnection(), -1);
  EXPECT_THAT(messages("ERR"), ElementsAre(_, EndsWith(": Operation canceled")));
}

TEST_F(Wait, ThatIsInterruptedAndResumedEndsTheExchange) {
  plays({[](PeerConnection& connection) { connection.ignoreAll(); }, answers});
  connects(endless());
  {
    const InsteadOfWaits interrupted(interruptsAndResumes());
    EXPECT_EQ(sends(), kSocketFailed);
  }
  EXPECT_THAT(causes(), ElementsAre(kHeadFailed,
                                    "Failed to receive V3 message, error is Operation canceled"));
  EXPECT_THAT(socketsTo(peer.port()), IsEmpty());
  EXPECT_EQ(sends(), 0U) << "it was resumed";
}

TEST_F(Wait, ForABodyHasTheWholeTimeAgain) {
  using Clock = std::chrono::steady_clock;
  Latch waits;
  Clock::time_point headSent;
  plays({[&](PeerConnection& connection) {
    const Message answer = answerTo(connection.request(), recordBytes(77));
    waits.waitFor(1);
    // Time of which the wait for the body must not be robbed.
    constexpr int kPause = 20;
    ::poll(nullptr, 0, kPause);
    headSent = Clock::now();
    connection.send({answer.begin(), answer.begin() + 28});
    waits.waitFor(2);
    connection.send({answer.begin() + 28, answer.end()});
  }});
  const TestLink::Limits limits = endless();
  connects(limits);
  std::vector<Clock::time_point> ends;
  {
    const InsteadOfWaits seen([&](const InsteadOfWaits::Wait& real, int timeout) {
      ends.push_back(Clock::now() + std::chrono::milliseconds(timeout));
      waits.count();
      return real();
    });
    EXPECT_EQ(sends(), 0U);
  }
  peer.join();
  ASSERT_THAT(ends, SizeIs(2));
  EXPECT_GE(ends[1], headSent + std::chrono::seconds(limits.reply.sec()));
}

TEST_F(Wait, ToConnectIsGivenUpByAThreadThatIsToBeCancelled) {
  if (QOV_TEST_ASAN) {
    GTEST_SKIP() << "AddressSanitizer does not follow a thread that is cancelled in a system call";
  }
  QuietPort quiet;
  TestLink::Limits limits = endless();
  limits.connect.set(0, 1000);
  std::thread([&] {
    const InsteadOfWaits cancels([](const InsteadOfWaits::Wait& real, int) {
      const int ready = real();
      ::pthread_cancel(::pthread_self());
      return ready;
    });
    const TestLink unconnected(quiet.port(), limits);
    ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  }).join();
  EXPECT_THAT(socketsTo(quiet.port()), SizeIs(1)) << "the one that fills its queue";
}

}  // namespace
}  // namespace qov::test
