#include <unistd.h>

#include <atomic>
#include <thread>

#include "tests/link/exchange_fixture.h"
#include "tests/support/latch.h"
#include "tests/support/sleeping_thread.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace qov::test {
namespace {

constexpr const char* kSendCanceled = "Failed to send V3 message, error is Operation canceled";
constexpr const char* kReceiveCanceled =
    "Failed to receive V3 message, error is Operation canceled";

/// Does `work` in a thread of its own when `when` was counted, and waits for its end.
class Afterwards {
 public:
  Afterwards(Latch& when, std::function<void()> work)
      : thread_([&when, toDo = std::move(work)] {
          EXPECT_TRUE(when.waitFor());
          toDo();
        }) {}
  ~Afterwards() { thread_.join(); }
  Afterwards(const Afterwards&) = delete;
  Afterwards& operator=(const Afterwards&) = delete;

 private:
  std::thread thread_;
};

class Interrupting : public LinkTest {
 protected:
  /// A script that never answers, and counts the request.
  ScriptedPeer::Script holds() {
    return [this](PeerConnection& connection) {
      connection.request();
      asked.count();
      connection.ignoreAll();
    };
  }
  /// As soon as `when` was counted and the test's thread sleeps.
  std::function<void()> interruptsTheSleeper() {
    return [this, id = ::gettid()] {
      waitForThread([id] { return sleeps(id); }, "slept");
      link->interrupt();
    };
  }

  Latch asked;
};

TEST_F(Interrupting, EndsTheWaitForAHeader) {
  plays({holds(), answers});
  connects(endless());
  const Afterwards interrupts(asked, interruptsTheSleeper());
  EXPECT_EQ(sends(), kSocketFailed);
  EXPECT_THAT(causes(), ElementsAre(kHeadFailed, kReceiveCanceled));
  EXPECT_EQ(peer.connections(), 1);
}

TEST_F(Interrupting, EndsTheWaitForAHeaderAlthoughItIsOverAtOnce) {
  plays({holds(), answers});
  connects(endless());
  const Afterwards interrupts(asked, [this, interrupt = interruptsTheSleeper()] {
    interrupt();
    link->resume();
  });
  EXPECT_EQ(sends(), kSocketFailed);
  EXPECT_THAT(causes(), ElementsAre(kHeadFailed, kReceiveCanceled));
}

TEST_F(Interrupting, EndsTheWaitForABody) {
  plays({[this](PeerConnection& connection) {
           Message answer = answerTo(connection.request(), recordBytes(77));
           answer.resize(30);
           connection.send(answer);
           asked.count();
           connection.ignoreAll();
         },
         answers});
  connects(endless());
  const Afterwards interrupts(asked, interruptsTheSleeper());
  EXPECT_EQ(sends(), kSocketFailed);
  EXPECT_THAT(messages("ERR").back(), ::testing::StartsWith("Failed to send message, "));
  EXPECT_THAT(causes(), ElementsAre(::testing::_, kReceiveCanceled));
  EXPECT_EQ(peer.connections(), 1);
}

TEST_F(Interrupting, EndsAWaitToSend) {
  plays({readsNothing()});
  connects(endless());
  const Afterwards interrupts(connected, interruptsTheSleeper());
  EXPECT_EQ(sendsUntilNothingIsTaken(), kSocketFailed);
  EXPECT_THAT(records(), ElementsAre(std::string("ERR 65613 ") + kSendCanceled));
}

TEST_F(Interrupting, ConnectsNoMoreForARequestCutShort) {
  plays({[this](PeerConnection& connection) {
           connection.head();
           asked.count();
           connection.ignoreAll();
         },
         answers});
  connects(endless());
  holdsLittle();
  makeLarge();
  {
    const Afterwards interrupts(asked, interruptsTheSleeper());
    EXPECT_EQ(sends(), kSocketFailed);
  }
  EXPECT_THAT(causes(), ElementsAre(kHeadFailed, kReceiveCanceled));
}

TEST_F(Interrupting, EndsConnecting) {
  QuietPort quiet;
  quiet.makeRoom();
  // Fills the queue again, so that its next connection is not taken.
  TestLink connecting(quiet.port(), endless());
  log.clear();
  Latch begun;
  const Afterwards interrupts(begun, [&, id = ::gettid()] {
    waitForThread([id] { return sleeps(id); }, "slept");
    connecting.interrupt();
  });
  begun.count();
  EXPECT_EQ(connecting.setupConnection(), -1);
  const std::string address = "127.0.0.1:" + std::to_string(quiet.port());
  EXPECT_THAT(messages("ERR"),
              ElementsAre("Failed to connect socket server, server ip is " + address,
                          "Failed to connect to the management endpoint " + address +
                              ": Operation canceled"));
}

TEST_F(Interrupting, EndsTheExchangesThatWaitForAnother) {
  plays({holds()});
  log.log().priority_mask(0, ACE_Log_Msg::PROCESS);
  connects(endless());
  constexpr int kWaiting = 4;
  std::atomic<int> ended{0};
  std::vector<std::thread> waiting;
  {
    const Afterwards interrupts(asked, [&] {
      Latch begun;
      for (int i = 0; i < kWaiting; ++i) {
        waiting.emplace_back([&] {
          CT7QPackageV3 other;
          begun.count();
          ended += link->sendMsg(&other) == kSocketFailed ? 1 : 0;
        });
      }
      EXPECT_TRUE(begun.waitFor(kWaiting));
      link->interrupt();
    });
    EXPECT_EQ(sends(), kSocketFailed);
  }
  for (std::thread& thread : waiting) {
    thread.join();
  }
  EXPECT_EQ(ended, kWaiting);
  EXPECT_EQ(peer.requests().size(), 1U);
}

/// Keeps an exchange that was interrupted from its end.
class HeldLink : public TestLink {
 public:
  explicit HeldLink(std::uint16_t port) : TestLink(port, endless()) {}

  unsigned int receiveMsg(CT7QPackageV3* package) override {
    const unsigned int result = TestLink::receiveMsg(package);
    if (result != 0) {
      noticed.count();
      EXPECT_TRUE(resumed.waitFor());
    }
    return result;
  }

  Latch noticed;
  Latch resumed;
};

TEST_F(Interrupting, LeavesItsRetryToAnExchangeThatHasWaitedForItsTurnAllTheTime) {
  plays({holds(), answers});
  log.log().priority_mask(0, ACE_Log_Msg::PROCESS);
  HeldLink held(peer.port());
  unsigned int results[2] = {};
  std::thread underWay([&] {
    CT7QPackageV3 other;
    results[0] = held.sendMsg(&other);
  });
  EXPECT_TRUE(asked.waitFor());
  Latch begun;
  pid_t id = 0;
  std::thread waiting([&] {
    CT7QPackageV3 other;
    id = ::gettid();
    begun.count();
    results[1] = held.sendMsg(&other);
  });
  EXPECT_TRUE(begun.waitFor());
  waitForThread([&] { return sleeps(id); }, "waits for its turn");
  held.interrupt();
  EXPECT_TRUE(held.noticed.waitFor());
  held.resume();
  held.resumed.count();
  underWay.join();
  waiting.join();
  EXPECT_EQ(results[0], kSocketFailed);
  EXPECT_EQ(results[1], 0U);
}

TEST_F(Interrupting, IsNotLostBeforeTheExchangeBegins) {
  plays({answers});
  connects(endless());
  link->interrupt();
  for (int i = 0; i < 2; ++i) {
    log.clear();
    EXPECT_EQ(sends(), kSocketFailed);
    EXPECT_EQ(package.count(), 1U) << "nothing was sent";
    EXPECT_THAT(causes(), ElementsAre(kSendCanceled));
  }
  EXPECT_EQ(link->setupConnection(), -1);
  peer.join();
  EXPECT_THAT(peer.requests(), IsEmpty());
  EXPECT_EQ(peer.connections(), 1);
}

TEST_F(Interrupting, EndsAWalkThatKeepsItsRows) {
  int rows = 0;
  plays({[&](PeerConnection& connection) {
    for (;;) {
      if (++rows == 3) {
        connection.request();
        asked.count();
        connection.ignoreAll();
        return;
      }
      connection.answer(recordBytes(7, 0));
    }
  }});
  connects(endless());
  {
    const Afterwards interrupts(asked, interruptsTheSleeper());
    EXPECT_EQ(walks(), kSocketFailed);
  }
  EXPECT_EQ(package.count(), 2U);
}

TEST_F(Interrupting, IsOverWithResume) {
  plays({answers, answers});
  connects(endless());
  link->interrupt();
  link->interrupt();
  EXPECT_EQ(sends(), kSocketFailed);
  link->resume();
  link->resume();
  EXPECT_EQ(sends(), 0U);
  EXPECT_EQ(package.count(), 1U);
}

TEST_F(Interrupting, MayComeAtAnyTime) {
  // Each time at another place of an exchange; whatever it meets, the exchange ends, and the link
  // works afterwards.
  constexpr int kTimes = 300;
  plays(std::vector<ScriptedPeer::Script>(2 * kTimes + 2, answers));
  log.log().priority_mask(0, ACE_Log_Msg::PROCESS);
  connects(endless());
  for (int i = 0; i < kTimes; ++i) {
    std::thread exchanging([&] {
      CT7QPackageV3 other;
      while (link->sendMsg(&other) == 0) {
      }
    });
    link->interrupt();
    exchanging.join();
    link->resume();
    ASSERT_EQ(sends(), 0U) << i;
  }
}

TEST_F(Interrupting, IsTraced) {
  plays({answers});
  connects();
  log.log().priority_mask(LM_TRACE, ACE_Log_Msg::PROCESS);
  link->interrupt();
  link->resume();
  EXPECT_THAT(messages("TRACE"), ElementsAre("enter void CQOVLongSocket::interrupt()...",
                                             "leave void CQOVLongSocket::interrupt(): OK",
                                             "enter void CQOVLongSocket::resume()...",
                                             "leave void CQOVLongSocket::resume(): OK"));
}

}  // namespace
}  // namespace qov::test
