// What an endpoint sends before it was asked: it is received with the answer in front of it.
#include "tests/link/exchange_fixture.h"

using ::testing::ElementsAre;

namespace qov::test {
namespace {

using tests::Bytes;

class EarlyBytes : public LinkTest {};

TEST_F(EarlyBytes, AreTakenForTheNextAnswer) {
  plays({[](PeerConnection& connection) {
    // A LEN of 0 although something comes behind: a header with another serial number and LEN 0.
    Message answer = answerTo(connection.request());
    const Message behind = Bytes().headV3(0).data();
    answer.insert(answer.end(), behind.begin(), behind.end());
    connection.send(answer);
    connection.request();
    connection.answerAll(recordBytes(77));
  }});
  connects();
  EXPECT_EQ(sends(), 0U);
  EXPECT_EQ(sends(), kBadReply);
  EXPECT_EQ(sends(), 0U);
  EXPECT_EQ(package.count(), 1U);
  EXPECT_EQ(peer.connections(), 1);
}

/// Sends the answers to `count` requests that are still to come at once, but for the last `held`
/// bytes of the last one, which it keeps until all requests are there.
ScriptedPeer::Script answersEarly(unsigned int count, std::size_t held) {
  return [=](PeerConnection& connection) {
    Message request = connection.request();
    Message all;
    for (unsigned int i = 0, serial = serialOf(request); i < count; ++i, ++serial) {
      request[22] = static_cast<unsigned char>(serial & 0xFF);
      request[23] = static_cast<unsigned char>(serial >> 8 & 0xFF);
      const Message answer = answerTo(request, recordBytes(77 + i));
      all.insert(all.end(), answer.begin(), answer.end());
    }
    connection.send({all.begin(), all.end() - static_cast<std::ptrdiff_t>(held)});
    for (unsigned int i = 1; i < count; ++i) {
      connection.request();
    }
    connection.send({all.end() - static_cast<std::ptrdiff_t>(held), all.end()});
    connection.ignoreAll();
  };
}

TEST_F(EarlyBytes, OfWholeAnswersAreThoseToTheirRequests) {
  for (const std::size_t held : {0U, 5U, 10U, 20U, 37U, 38U}) {
    ScriptedPeer early;
    early.open({answersEarly(3, held)});
    TestLink toIt(early.port(), endless());
    CT7QPackageV3 asked;
    for (unsigned int i = 0; i < 3; ++i) {
      ASSERT_EQ(toIt.sendMsg(&asked), 0U) << held << ' ' << i;
      EXPECT_EQ(asked[0].cmd(), 77 + i);
    }
    EXPECT_EQ(early.connections(), 1);
  }
}

TEST_F(EarlyBytes, GoWithTheirConnection) {
  plays({answersEarly(2, 0), [](auto& connection) { connection.answerAll(recordBytes(99)); }});
  connects(endless());
  EXPECT_EQ(sends(), 0U);
  EXPECT_EQ(link->setupConnection(), 0);
  EXPECT_EQ(sends(), 0U);
  EXPECT_EQ(package[0].cmd(), 99U);
}

TEST_F(EarlyBytes, OfAMessageThatIsTooLongMakeTheNextExchangeFailAndRepeat) {
  plays({[](PeerConnection& connection) {
           Message answers = answerTo(connection.request());
           const Message tooLong = Bytes().headV3(2097152 - 28 + 1).u8(1).data();
           answers.insert(answers.end(), tooLong.begin(), tooLong.end());
           connection.send(answers);
           connection.ignoreAll();
         },
         [](auto& connection) { connection.answerAll(recordBytes(99)); }});
  connects(endless());
  EXPECT_EQ(sends(), 0U);
  EXPECT_EQ(sends(), 0U);
  EXPECT_EQ(package[0].cmd(), 99U);
  EXPECT_THAT(causes(),
              ElementsAre(kBodyFailed, "Failed to receive V3 message, error is Message too long"));
}

TEST_F(EarlyBytes, AreThereForWhateverReceivesNext) {
  plays({answersEarly(4, 0)});
  connects(endless());
  EXPECT_EQ(sends(), 0U);
  std::vector<char> buffer(2097152);
  for (const unsigned int command : {78U, 79U}) {
    unsigned int length = 0;
    ASSERT_EQ(link->recvData(buffer.data(), length, nullptr), 0U);
    ASSERT_EQ(length, 38U);
    EXPECT_EQ(static_cast<unsigned char>(buffer[28]), command);
  }
  CT7QPackageV3 last;
  last.head().ser_ = static_cast<std::uint16_t>(package.head().ser_ + 3);
  EXPECT_EQ(link->receiveMsg(&last), 0U);
  EXPECT_EQ(last[0].cmd(), 80U);
}

}  // namespace
}  // namespace qov::test
