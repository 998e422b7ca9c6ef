#include <pthread.h>
#include <sys/socket.h>

#include <atomic>
#include <stdexcept>
#include <thread>

#include "tests/link/link_fixture.h"
#include "tests/support/latch.h"
#include "tests/support/sanitizers.h"

namespace qov::test {
namespace {

constexpr int kThreads = 8;
constexpr int kEach = 100;

/// Answers `count` requests with their own records, and says when one came before its time.
ScriptedPeer::Script echoes(int count, std::atomic<bool>& interleaved) {
  return [count, &interleaved](PeerConnection& connection) {
    for (int i = 0; i < count; ++i) {
      const Message request = connection.request();
      unsigned char next;
      if (::recv(connection.socket(), &next, 1, MSG_PEEK | MSG_DONTWAIT) > 0) {
        interleaved = true;
      }
      Message answer = request;
      connection.send(answer);
    }
  };
}

class LinkThreads : public LinkTest {};

TEST_F(LinkThreads, GivesEachThreadTheAnswerToItsOwnRequest) {
  std::atomic<bool> interleaved{false};
  // The connection is lost twice meanwhile.
  plays({echoes(100, interleaved), echoes(200, interleaved),
         echoes(kThreads * kEach - 300, interleaved)});
  log.log().priority_mask(0, ACE_Log_Msg::PROCESS);
  connects();
  std::atomic<int> right{0};
  std::vector<std::thread> threads;
  for (unsigned int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (unsigned int i = 0; i < kEach; ++i) {
        CT7QPackageV3 asked;
        asked.addRecord(1000 * thread + i);
        if (link->sendMsg(&asked) == 0 && asked.count() == 1 &&
            asked[0].cmd() == 1000 * thread + i) {
          ++right;
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  peer.join();
  EXPECT_EQ(right, kThreads * kEach);
  EXPECT_FALSE(interleaved);
  EXPECT_EQ(peer.connections(), 3);
  EXPECT_EQ(peer.requests().size(), static_cast<std::size_t>(kThreads * kEach));
}

TEST_F(LinkThreads, GoesOnWhenAThreadIsCancelledInItsExchange) {
  if (QOV_TEST_ASAN || QOV_TEST_TSAN) {
    GTEST_SKIP() << "the sanitizers do not follow a thread that is cancelled in a system call";
  }
  Latch asked;
  plays({[&](PeerConnection& connection) {
           connection.request();
           asked.count();
           connection.waitForEnd();
         },
         [](PeerConnection& connection) { connection.answerAll(recordBytes(77)); }});
  log.log().priority_mask(0, ACE_Log_Msg::PROCESS);
  connects();
  const auto exchange = [](void* through) -> void* {
    CT7QPackageV3 lost;
    static_cast<CQOVLongSocket*>(through)->sendMsg(&lost);
    return nullptr;
  };
  pthread_t thread;
  ASSERT_EQ(::pthread_create(&thread, nullptr, exchange, link.get()), 0);
  EXPECT_TRUE(asked.waitFor());
  ::pthread_cancel(thread);
  void* end = nullptr;
  ::pthread_join(thread, &end);
  EXPECT_EQ(end, PTHREAD_CANCELED);
  EXPECT_EQ(sends(), 0U);
  EXPECT_EQ(package.count(), 1U);
}

/// Is cancelled while it receives, and throws then.
class GivingUpCancelled : public TestLink {
 public:
  using TestLink::TestLink;
  unsigned int receiveMsg(CT7QPackageV3*) override {
    ::pthread_cancel(::pthread_self());
    throw std::runtime_error("given up");
  }
};

TEST_F(LinkThreads, IsGivenUpByAThreadThatIsToBeCancelled) {
  plays({[](PeerConnection& connection) { connection.ignoreAll(); }});
  log.log().priority_mask(0, ACE_Log_Msg::PROCESS);
  GivingUpCancelled giving(peer.port());
  bool thrown = false;
  std::thread([&] {
    CT7QPackageV3 lost;
    try {
      giving.sendMsg(&lost);
    } catch (const std::runtime_error&) {
      ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
      thrown = true;
    }
  }).join();
  EXPECT_TRUE(thrown);
  EXPECT_THAT(socketsTo(peer.port()), ::testing::IsEmpty());
}

}  // namespace
}  // namespace qov::test
