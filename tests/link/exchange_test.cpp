#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <functional>
#include <vector>

#include "tests/link/exchange_fixture.h"

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

namespace qov::test {
namespace {

using tests::Bytes;

constexpr const char* kTooLong = "Failed to receive V3 message, error is Message too long";

/// Answers with header fields SER, RET and LEN as given and `body` behind.
ScriptedPeer::Script answersWithLength(std::uint32_t len, const Bytes& body = {}) {
  return [=](PeerConnection& connection) {
    Message answer = answerTo(connection.request(), body);
    for (unsigned int i = 0; i < 4; ++i) {
      answer[24 + i] = static_cast<unsigned char>(len >> 8 * i);
    }
    connection.send(answer);
    connection.ignoreAll();
  };
}

class Exchange : public LinkTest {};

TEST_F(Exchange, PutsTheAnswerIntoThePackage) {
  plays({[](auto& connection) { connection.answer(recordBytes(77, 0)); }});
  connects();
  EXPECT_EQ(sends(), 0U);
  ASSERT_EQ(package.count(), 1U);
  EXPECT_EQ(package[0].cmd(), 77U);
  EXPECT_EQ(package[0].getUnsigned(MAX_TAG_VALUE), 0U);
}

TEST_F(Exchange, SendsTheMessageWithAFreshSerialNumber) {
  plays({answers});
  connects();
  package[0].addUnsigned(5, 0x0102);
  package.head().ssk_ = 0x11223344;
  ASSERT_EQ(sends(), 0U);
  const std::uint16_t first = package.head().ser_;
  ASSERT_EQ(sends(), 0U);
  EXPECT_EQ(package.head().ser_, first + 1);
  Bytes expected;
  expected.u32(0x55555555).u32(3).u32(0).u32(0x11223344).u16(0xFFFD).u16(0xFFFF).u16(0xFFFF);
  expected.u16(first).u32(16).record(1, 6).cell(5, 3, 2).u16(0x0102);
  EXPECT_EQ(peer.requests().front(), expected.data());
}

TEST_F(Exchange, IsOneSegmentOnTheWay) {
  tcp_info info{};
  plays({[&](PeerConnection& connection) {
    connection.request();
    socklen_t size = sizeof info;
    ::getsockopt(connection.socket(), IPPROTO_TCP, TCP_INFO, &info, &size);
  }});
  connects(endless());
  sends();
  peer.join();
  EXPECT_EQ(info.tcpi_data_segs_in, 1U);
}

TEST_F(Exchange, IsCompleteBehindTheHeaderOfAnAnswerWithoutRecords) {
  plays({[](auto& connection) { connection.answerAll(); }});
  connects();
  EXPECT_EQ(sends(), 0U);
  EXPECT_EQ(package.count(), 0U);
}

TEST_F(Exchange, GivesTheResultOfTheAnswer) {
  plays({[](auto& connection) { connection.answer(recordBytes(77), 0xFFFFFFFE); }});
  connects();
  EXPECT_EQ(sends(), 0xFFFFFFFEU);
  ASSERT_EQ(package.count(), 1U);
  EXPECT_EQ(package.head().ret_, 0xFFFFFFFEU);
  EXPECT_THAT(records(), ElementsAre(StartsWith("DBG 65535 send:\n"),
                                     "ERR 65618 Failed to receive V3 message, error code is -2",
                                     "DBG 65535 received:\n" + dumpOf(package),
                                     "ERR 65620 Failed to send message, error code is -2, "
                                     "message is : " +
                                         dumpOf(package)));
}

TEST_F(Exchange, GivesTheResultOfAnAnswerThatCannotBeDecoded) {
  plays({[](auto& connection) { connection.answer(Bytes().u8(1), 5); }});
  connects();
  EXPECT_EQ(sends(), 5U);
  EXPECT_EQ(package.count(), 0U);
}

TEST_F(Exchange, RefusesAnAnswerThatCannotBeDecoded) {
  constexpr std::size_t kMagic = 0;
  constexpr std::size_t kLength = 24;
  const std::vector<std::function<void(Message&)>> changes{
      [](Message& answer) { ++answer[kMagic]; },
      [](Message& answer) { --answer[kLength]; },  // ends within its last cell
      [](Message& answer) {
        ++answer[kLength];
        answer.push_back(1);
      }};
  for (const auto& change : changes) {
    ScriptedPeer lying;
    lying.open({[change](PeerConnection& connection) {
      Message answer = answerTo(connection.request(), recordBytes(77, 0));
      change(answer);
      connection.send(answer);
      connection.ignoreAll();
    }});
    TestLink toIt(lying.port(), endless());
    EXPECT_EQ(toIt.sendMsg(&package), kBadReply);
    EXPECT_EQ(package.count(), 0U);
  }
}

TEST_F(Exchange, RefusesAnAnswerToAnotherRequestAndKeepsTheConnection) {
  plays({[](PeerConnection& connection) {
    Message answer = answerTo(connection.request(), recordBytes(77));
    answer[22] = 0xFE;
    answer[23] = 0xFF;
    connection.send(answer);
    connection.answerAll(recordBytes(78));
  }});
  connects();
  EXPECT_EQ(sends(), kBadReply);
  EXPECT_EQ(package.count(), 0U);
  const std::string serial = std::to_string(package.head().ser_);
  EXPECT_THAT(
      records("ERR"),
      ElementsAre("ERR 65617 V3 message serial number mismatch, send serial is " + serial +
                      ", receive serial is 65534",
                  "ERR 65620 Failed to send message, error code is 16797698, message is : " +
                      dumpOf(package)));
  EXPECT_EQ(sends(), 0U);
  EXPECT_EQ(peer.connections(), 1);
}

TEST_F(Exchange, TakesAnAnswerTooManyForNoAnswerToTheNext) {
  plays({[](PeerConnection& connection) {
    const Message request = connection.request();
    connection.send(answerTo(request, recordBytes(77)));
    connection.send(answerTo(request, recordBytes(78)));
    connection.answerAll(recordBytes(79));
  }});
  connects();
  EXPECT_EQ(sends(), 0U);
  EXPECT_EQ(sends(), kBadReply);
  EXPECT_EQ(package.count(), 0U);
  EXPECT_EQ(peer.connections(), 1);
}

TEST_F(Exchange, RepeatsTheRequestWhenTheAnswerHasTheResultOfAFailedSocket) {
  plays({[](auto& connection) {
    connection.answer({}, kSocketFailed);
    connection.answer({}, kSocketFailed);
    connection.answerAll();
  }});
  connects();
  EXPECT_EQ(sends(), kSocketFailed);
  EXPECT_EQ(peer.requests().size(), 2U);
  EXPECT_EQ(peer.connections(), 1);
}

TEST_F(Exchange, StepsReceiveWithoutATimeoutWhenThereIsNone) {
  const Message sent = Bytes().headV3(10).record(77, 0).data();
  plays({[sent](auto& connection) { connection.send(sent); }});
  connects();
  std::vector<char> buffer(2097152);
  unsigned int length = 5;
  ASSERT_EQ(link->recvData(buffer.data(), length, nullptr), 0U);
  ASSERT_EQ(length, 38U);
  EXPECT_EQ(Message(buffer.begin(), buffer.begin() + 38), sent);
  EXPECT_EQ(link->recvData(buffer.data(), length, nullptr), kSocketFailed);
  EXPECT_EQ(length, 38U);
  EXPECT_THAT(causes(), ElementsAre(kHeadFailed, kClosed, notConnectedTo(), refused()));
}

TEST_F(Exchange, StepsRefuseLessThanAHeader) {
  connects();
  tests::FencedMemory cut(Message(27, 0x55));
  EXPECT_EQ(link->convert(cut.begin(), 27, &package), kBadReply);
  EXPECT_EQ(link->convert(nullptr, 0, &package), kBadReply);
  EXPECT_EQ(package.count(), 1U);
}

TEST_F(Exchange, TakesALengthBelowZeroForNoBody) {
  for (const std::uint32_t length : {0xFFFFFFFFU, 0x80000000U}) {
    ScriptedPeer lying;
    lying.open({answersWithLength(length)});
    TestLink toIt(lying.port());
    EXPECT_EQ(toIt.sendMsg(&package), kBadReply);
    EXPECT_EQ(lying.connections(), 1);
  }
  EXPECT_THAT(causes(), IsEmpty());
}

TEST_F(Exchange, FailsToReceiveABodyLongerThanItsBuffer) {
  plays({answersWithLength(2097152 - 28 + 1), answersWithLength(0x7FFFFFFF)});
  connects();
  EXPECT_EQ(sends(), kSocketFailed);
  EXPECT_THAT(causes(), ElementsAre(kBodyFailed, kTooLong, kBodyFailed, kTooLong, notConnectedTo(),
                                    refused()));
}

TEST_F(Exchange, ReceivesABodyAsLongAsItsBuffer) {
  Bytes body;
  const auto add = [&](unsigned int size) {
    constexpr unsigned int kOctet = 1;
    body.record(9, size - 10).cell(1, kOctet, size - 14).fill(size - 14, 0xAB);
  };
  constexpr unsigned int kLongest = 65545;
  while (body.size() + 2 * kLongest <= 2097152 - 28) {
    add(kLongest);
  }
  const unsigned int left = 2097152 - 28 - body.size();
  add(left / 2);
  add(left - left / 2);
  ASSERT_EQ(body.size(), 2097152U - 28);
  plays({[body](auto& connection) { connection.answer(body); }});
  log.log().priority_mask(LM_ERROR, ACE_Log_Msg::PROCESS);
  connects();
  EXPECT_EQ(sends(), 0U);
  ASSERT_EQ(package.count(), 32U);
  EXPECT_EQ(package[31].getOctets(1).size(), left - left / 2 - 14);
}

TEST_F(Exchange, ReceivesAnAnswerByteForByte) {
  plays({[](PeerConnection& connection) {
    connection.trickle(answerTo(connection.request(), recordBytes(77, 0)));
  }});
  connects();
  EXPECT_EQ(sends(), 0U);
  EXPECT_EQ(package.count(), 1U);
}

}  // namespace
}  // namespace qov::test
