#include <stdexcept>
#include <utility>

#include "tests/link/exchange_fixture.h"

using ::testing::_;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

namespace qov::test {
namespace {

using tests::Bytes;

constexpr const char* kTimedOut = "Failed to receive V3 message, error is Timer expired";
constexpr const char* kNotConnected =
    "Failed to send V3 message, error is Transport endpoint is not connected";

const ScriptedPeer::Script ignores = [](PeerConnection& connection) { connection.ignoreAll(); };

class ExchangeFailure : public LinkTest {};

TEST_F(ExchangeFailure, RepeatsTheRequestOnceWhenThePeerClosesInTheHeader) {
  plays({answersOnly(27), answers});
  connects();
  EXPECT_EQ(sends(), 0U);
  EXPECT_THAT(records(),
              ElementsAre(StartsWith("DBG 65535 send:\n"), std::string("ERR 65614 ") + kHeadFailed,
                          std::string("ERR 65616 ") + kClosed, "INFO 65612 " + connectedTo(),
                          StartsWith("DBG 65535 received:\n")));
  const auto requests = peer.requests();
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_EQ(requests[0], requests[1]);
}

TEST_F(ExchangeFailure, RepeatsTheRequestOnceWhenThePeerClosesInTheBody) {
  plays({answersOnly(37), answers});
  connects();
  EXPECT_EQ(sends(), 0U);
  EXPECT_THAT(records("ERR"), ElementsAre(std::string("ERR 65615 ") + kBodyFailed,
                                          std::string("ERR 65616 ") + kClosed));
  EXPECT_EQ(peer.requests().size(), 2U);
  EXPECT_EQ(package.count(), 1U);
}

TEST_F(ExchangeFailure, RepeatsTheRequestOnceWhenThePeerHasClosedBeforeIt) {
  plays({[&](PeerConnection&) { connected.count(); }, answers});
  connects();
  EXPECT_TRUE(connected.waitFor());
  EXPECT_EQ(sends(), 0U);
  EXPECT_EQ(package.count(), 1U);
  EXPECT_EQ(peer.connections(), 2);
}

TEST_F(ExchangeFailure, FailsWhenThePeerClosesTwice) {
  plays({answersOnly(0), answersOnly(28), answers});
  connects();
  EXPECT_EQ(sends(), kSocketFailed);
  EXPECT_EQ(peer.requests().size(), 2U);
  EXPECT_EQ(package.count(), 0U);
  EXPECT_THAT(
      records(),
      ElementsAre(StartsWith("DBG 65535 send:\n"), std::string("ERR 65614 ") + kHeadFailed,
                  std::string("ERR 65616 ") + kClosed, "INFO 65612 " + connectedTo(),
                  std::string("ERR 65615 ") + kBodyFailed, std::string("ERR 65616 ") + kClosed,
                  "INFO 65612 " + connectedTo(), "DBG 65535 received:\n" + dumpOf(package),
                  "ERR 65620 Failed to send message, error code is 16797704, "
                  "message is : " +
                      dumpOf(package)));
  EXPECT_EQ(sends(), 0U);
}

TEST_F(ExchangeFailure, TellsAResetFromAClosedConnection) {
  plays({[](PeerConnection& connection) {
           connection.request();
           connection.reset();
         },
         answers});
  connects();
  EXPECT_EQ(sends(), 0U);
  EXPECT_THAT(
      causes(),
      ElementsAre(kHeadFailed, "Failed to receive V3 message, error is Connection reset by peer"));
}

TEST_F(ExchangeFailure, WithoutAConnectionFailsAtOnceAndConnects) {
  connects(endless());
  plays({answers});
  EXPECT_EQ(sends(), 0U);
  EXPECT_THAT(
      records(),
      ElementsAre(StartsWith("DBG 65535 send:\n"), std::string("ERR 65613 ") + kNotConnected,
                  "INFO 65612 " + connectedTo(), StartsWith("DBG 65535 received:\n")));
  EXPECT_EQ(peer.requests().size(), 1U);
}

TEST_F(ExchangeFailure, WithoutAnEndpointFailsAtOnce) {
  connects(endless());
  EXPECT_EQ(sends(), kSocketFailed);
  EXPECT_EQ(package.count(), 1U);
  EXPECT_THAT(records(), ElementsAre(StartsWith("DBG 65535 send:\n"),
                                     std::string("ERR 65613 ") + kNotConnected,
                                     "ERR 65611 " + notConnectedTo(), "ERR 65830 " + refused(),
                                     std::string("ERR 65613 ") + kNotConnected,
                                     "ERR 65611 " + notConnectedTo(), "ERR 65830 " + refused(),
                                     "ERR 65620 Failed to send message, error code is 16797704, "
                                     "message is : " +
                                         dumpOf(package)));
}

TEST_F(ExchangeFailure, HasNoSecondRetryWhenSendingHasTakenTheFirst) {
  connects(endless());
  plays({answersOnly(0), answers});
  EXPECT_EQ(sends(), kSocketFailed);
  EXPECT_EQ(peer.requests().size(), 1U);
  EXPECT_EQ(sends(), 0U);
}

TEST_F(ExchangeFailure, HasNoSecondRetryWhenReceivingHasTakenTheFirst) {
  plays({answersOnly(0)});
  connects(endless());
  EXPECT_EQ(sends(), kSocketFailed);
  EXPECT_EQ(peer.requests().size(), 1U);
  EXPECT_EQ(package.count(), 0U) << "the request was sent";
  EXPECT_THAT(records(),
              ElementsAre(StartsWith("DBG 65535 send:\n"), std::string("ERR 65614 ") + kHeadFailed,
                          std::string("ERR 65616 ") + kClosed, "ERR 65611 " + notConnectedTo(),
                          "ERR 65830 " + refused(), std::string("ERR 65613 ") + kNotConnected,
                          "ERR 65611 " + notConnectedTo(), "ERR 65830 " + refused(),
                          "ERR 65620 Failed to send message, error code is 16797704, "
                          "message is : " +
                              dumpOf(package)));
}

TEST_F(ExchangeFailure, ReplacesTheConnectionWhenItsRequestWasCutShort) {
  plays({[](PeerConnection& connection) {
           // An endpoint that knows from the header alone what it thinks of the request.
           connection.send(answerTo(connection.head(), recordBytes(76)));
           connection.ignoreAll();
         },
         answers});
  connects(endless());
  holdsLittle();
  log.log().priority_mask(LM_ERROR, ACE_Log_Msg::PROCESS);
  makeLarge();
  EXPECT_EQ(sends(), 0U);
  ASSERT_EQ(package.count(), 1U);
  EXPECT_EQ(package[0].cmd(), 76U);
  EXPECT_THAT(records(), IsEmpty());
  EXPECT_EQ(sends(), 0U) << "not taken for the rest of the first request";
  EXPECT_EQ(package[0].cmd(), 77U);
  EXPECT_THAT(records(), IsEmpty());
  EXPECT_EQ(peer.connections(), 2);
}

TEST_F(ExchangeFailure, KeepsTheConnectionThatHasReplacedTheOneOfARequestCutShort) {
  plays({[](PeerConnection& connection) { connection.head(); },
         [](PeerConnection& connection) {
           connection.answer(recordBytes(76));
           connection.answerAll(recordBytes(77));
         }});
  connects(endless());
  holdsLittle();
  log.log().priority_mask(LM_ERROR, ACE_Log_Msg::PROCESS);
  makeLarge();
  EXPECT_EQ(sends(), 0U);
  EXPECT_EQ(package[0].cmd(), 76U);
  log.clear();
  EXPECT_EQ(sends(), 0U);
  EXPECT_THAT(records(), IsEmpty());
  EXPECT_EQ(peer.connections(), 2);
}

TEST_F(ExchangeFailure, EndsInTimeWhenNoAnswerComes) {
  plays({ignores, ignores, ignores});
  connects(shortReply());
  EXPECT_EQ(sends(), kSocketFailed);
  EXPECT_THAT(causes(), ElementsAre(kHeadFailed, kTimedOut, kHeadFailed, kTimedOut));
}

TEST_F(ExchangeFailure, EndsInTimeWhenTheAnswerComesByteForByte) {
  const auto crawls = [](PeerConnection& connection) {
    connection.request();
    connection.crawl(Bytes().headV3(1000000).fill(1000000, 0).data());
  };
  plays({crawls, crawls, ignores});
  connects(shortReply());
  EXPECT_EQ(sends(), kSocketFailed);
  EXPECT_THAT(causes(), ElementsAre(_, kTimedOut, _, kTimedOut));
}

/// Has no patience at its first attempt, and any amount of it afterwards.
class Hasty : public TestLink {
 public:
  explicit Hasty(std::uint16_t port) : TestLink(port, endless()) {}
  unsigned int receiveMsg(CT7QPackageV3* into) override {
    if (!std::exchange(hasty_, false)) {
      return TestLink::receiveMsg(into);
    }
    std::vector<char> buffer(kMaxMessage);
    unsigned int length = 0;
    const ACE_Time_Value soon(0, 50000);
    return recvData(buffer.data(), length, &soon);
  }

 private:
  bool hasty_ = true;
};

TEST_F(ExchangeFailure, NeverTakesALateAnswerForTheNext) {
  plays({[](PeerConnection& connection) {
           const Message request = connection.request();
           connection.waitForEnd();
           connection.send(answerTo(request, recordBytes(1111)));
         },
         answers});
  Hasty hasty(peer.port());
  EXPECT_EQ(hasty.sendMsg(&package), 0U);
  ASSERT_EQ(package.count(), 1U);
  EXPECT_EQ(package[0].cmd(), 77U);
}

/// Throws instead of receiving, as often as it is told.
class GivingUp : public TestLink {
 public:
  using TestLink::TestLink;
  unsigned int receiveMsg(CT7QPackageV3* into) override {
    if (times-- > 0) {
      throw std::runtime_error("given up");
    }
    return TestLink::receiveMsg(into);
  }
  int times = 1;
};

TEST_F(ExchangeFailure, LeavesNoAnswerBehindWhenItIsGivenUp) {
  plays({answers, answers});
  GivingUp giving(peer.port());
  EXPECT_THROW(giving.sendMsg(&package), std::runtime_error);
  EXPECT_EQ(giving.sendMsg(&package), 0U);
  EXPECT_EQ(peer.connections(), 2);
}

/// Overrides both operations that can be.
class Overriding : public TestLink {
 public:
  using TestLink::TestLink;
  unsigned int sendMsg_i(const unsigned char*, unsigned int) override {
    ++sent;
    return sendResult;
  }
  unsigned int receiveMsg(CT7QPackageV3*) override {
    ++received;
    return receiveResult;
  }
  unsigned int sendResult = 0;
  unsigned int receiveResult = 0;
  int sent = 0;
  int received = 0;
};

TEST_F(ExchangeFailure, RetriesAfterNoOtherResultThanThatOfTheSocket) {
  Overriding overriding(peer.port());
  overriding.sendResult = 9;
  EXPECT_EQ(overriding.sendMsg(&package), 9U);
  EXPECT_EQ(overriding.sent, 1);
  EXPECT_EQ(overriding.received, 0);
  overriding.sendResult = 0;
  overriding.receiveResult = kBadReply;
  EXPECT_EQ(overriding.sendMsg(&package), kBadReply);
  EXPECT_EQ(overriding.sent, 2);
  EXPECT_EQ(overriding.received, 1);
  overriding.receiveResult = kSocketFailed;
  EXPECT_EQ(overriding.sendMsg(&package), kSocketFailed);
  EXPECT_EQ(overriding.sent, 4);
  EXPECT_EQ(overriding.received, 3);
}

}  // namespace
}  // namespace qov::test
