#include <sys/socket.h>

#include <atomic>
#include <thread>

#include "tests/link/link_fixture.h"

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

TEST_F(LinkTest, GivesEachThreadTheAnswerToItsOwnRequest) {
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
  EXPECT_EQ(right, kThreads * kEach);
  EXPECT_FALSE(interleaved);
  EXPECT_EQ(peer.connections(), 3);
  EXPECT_EQ(peer.requests().size(), static_cast<std::size_t>(kThreads * kEach));
}

}  // namespace
}  // namespace qov::test
