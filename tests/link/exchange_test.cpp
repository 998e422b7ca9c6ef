#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <sstream>
#include <stdexcept>
#include <utility>

#include "tests/link/link_fixture.h"

using ::testing::_;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

namespace qov::test {
namespace {

using tests::Bytes;

constexpr const char* kHeadFailed = "It failed to receive v3 message head!";
constexpr const char* kBodyFailed = "It failed to receive v3 message body!";
constexpr const char* kClosed = "Failed to receive V3 message, error is Link has been severed";
constexpr const char* kTimedOut = "Failed to receive V3 message, error is Timer expired";
constexpr const char* kTooLong = "Failed to receive V3 message, error is Message too long";
constexpr const char* kNotConnected =
    "Failed to send V3 message, error is Transport endpoint is not connected";

/// The text of `package` in the log.
std::string dumpOf(const CT7QPackageV3& package) {
  std::ostringstream out;
  package.dump(out);
  return out.str();
}

/// Sends the first `count` bytes of an answer with one record.
ScriptedPeer::Script answersOnly(std::size_t count) {
  return [count](PeerConnection& connection) {
    Message answer = answerTo(connection.request(), recordBytes(77));
    answer.resize(count);
    connection.send(answer);
  };
}
const ScriptedPeer::Script answers = [](PeerConnection& connection) {
  connection.answerAll(recordBytes(77));
};
const ScriptedPeer::Script ignores = [](PeerConnection& connection) { connection.ignoreAll(); };

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

class Exchange : public LinkTest {
 protected:
  /// Makes the request larger than one send takes after holdsLittle().
  void makeLarge() {
    const std::string octets(60000, 'x');
    for (int i = 0; i < 4; ++i) {
      package.addRecord(2).addOctets(1, octets.data(), octets.size());
    }
  }
};

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

TEST_F(Exchange, LogsWhatItSendsAndReceives) {
  plays({answers});
  connects();
  TLVMsgHeadV3::allocateSerial(package.head());
  CT7QPackageV3 sent(package);
  sent.head().ser_ = static_cast<std::uint16_t>(package.head().ser_ + 1);
  sent.head().len_ = 10;
  ASSERT_EQ(sends(), 0U);
  EXPECT_THAT(records(), ElementsAre("DBG 65535 send:\n" + dumpOf(sent),
                                     "DBG 65535 received:\n" + dumpOf(package)));
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
  plays({[](auto& connection) { connection.answer(Bytes().u8(1)); }});
  connects();
  EXPECT_EQ(sends(), kBadReply);
  EXPECT_EQ(package.count(), 0U);
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
  EXPECT_THAT(causes(), ElementsAre(kHeadFailed, kClosed, notConnectedTo()));
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

TEST_F(Exchange, TakesWhatStandsBehindAMessageForTheNextAnswer) {
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

TEST_F(Exchange, FailsToReceiveABodyLongerThanItsBuffer) {
  plays({answersWithLength(2097152 - 28 + 1), answersWithLength(0x7FFFFFFF)});
  connects();
  EXPECT_EQ(sends(), kSocketFailed);
  EXPECT_THAT(causes(),
              ElementsAre(kBodyFailed, kTooLong, kBodyFailed, kTooLong, notConnectedTo()));
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

TEST_F(Exchange, RepeatsTheRequestOnceWhenThePeerClosesInTheHeader) {
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

TEST_F(Exchange, RepeatsTheRequestOnceWhenThePeerClosesInTheBody) {
  plays({answersOnly(37), answers});
  connects();
  EXPECT_EQ(sends(), 0U);
  EXPECT_THAT(records("ERR"), ElementsAre(std::string("ERR 65615 ") + kBodyFailed,
                                          std::string("ERR 65616 ") + kClosed));
  EXPECT_EQ(peer.requests().size(), 2U);
  EXPECT_EQ(package.count(), 1U);
}

TEST_F(Exchange, FailsWhenThePeerClosesTwice) {
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

TEST_F(Exchange, TellsAResetFromAClosedConnection) {
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

TEST_F(Exchange, WithoutAConnectionFailsAtOnceAndConnects) {
  connects(endless());
  plays({answers});
  EXPECT_EQ(sends(), 0U);
  EXPECT_THAT(
      records(),
      ElementsAre(StartsWith("DBG 65535 send:\n"), std::string("ERR 65613 ") + kNotConnected,
                  "INFO 65612 " + connectedTo(), StartsWith("DBG 65535 received:\n")));
  EXPECT_EQ(peer.requests().size(), 1U);
}

TEST_F(Exchange, WithoutAnEndpointFailsAtOnce) {
  connects(endless());
  EXPECT_EQ(sends(), kSocketFailed);
  EXPECT_EQ(package.count(), 1U);
  EXPECT_THAT(
      records(),
      ElementsAre(StartsWith("DBG 65535 send:\n"), std::string("ERR 65613 ") + kNotConnected,
                  "ERR 65611 " + notConnectedTo(), std::string("ERR 65613 ") + kNotConnected,
                  "ERR 65611 " + notConnectedTo(),
                  "ERR 65620 Failed to send message, error code is 16797704, "
                  "message is : " +
                      dumpOf(package)));
}

TEST_F(Exchange, HasNoSecondRetryWhenSendingHasTakenTheFirst) {
  connects(endless());
  plays({answersOnly(0), answers});
  EXPECT_EQ(sends(), kSocketFailed);
  EXPECT_EQ(peer.requests().size(), 1U);
  EXPECT_EQ(sends(), 0U);
}

TEST_F(Exchange, HasNoSecondRetryWhenReceivingHasTakenTheFirst) {
  plays({answersOnly(0)});
  connects(endless());
  EXPECT_EQ(sends(), kSocketFailed);
  EXPECT_EQ(peer.requests().size(), 1U);
  EXPECT_EQ(package.count(), 0U) << "the request was sent";
  EXPECT_THAT(
      records(),
      ElementsAre(StartsWith("DBG 65535 send:\n"), std::string("ERR 65614 ") + kHeadFailed,
                  std::string("ERR 65616 ") + kClosed, "ERR 65611 " + notConnectedTo(),
                  std::string("ERR 65613 ") + kNotConnected, "ERR 65611 " + notConnectedTo(),
                  "ERR 65620 Failed to send message, error code is 16797704, "
                  "message is : " +
                      dumpOf(package)));
}

TEST_F(Exchange, ClosesTheConnectionWhenItsRequestWasCutShort) {
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
  ASSERT_THAT(socketsTo(peer.port()), IsEmpty());
  EXPECT_EQ(sends(), 0U) << "not taken for the rest of the first request";
  EXPECT_EQ(package[0].cmd(), 77U);
  EXPECT_THAT(causes(), ElementsAre(kNotConnected));
}

TEST_F(Exchange, KeepsTheConnectionThatHasReplacedTheOneOfARequestCutShort) {
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

TEST_F(Exchange, EndsInTimeWhenNoAnswerComes) {
  plays({ignores, ignores, ignores});
  connects(shortReply());
  EXPECT_EQ(sends(), kSocketFailed);
  EXPECT_THAT(causes(), ElementsAre(kHeadFailed, kTimedOut, kHeadFailed, kTimedOut));
}

TEST_F(Exchange, EndsInTimeWhenTheAnswerComesByteForByte) {
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

TEST_F(Exchange, NeverTakesALateAnswerForTheNext) {
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

TEST_F(Exchange, LeavesNoAnswerBehindWhenItIsGivenUp) {
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

TEST_F(Exchange, RetriesAfterNoOtherResultThanThatOfTheSocket) {
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

/// Counts its dumps, and can refuse to be encoded.
class CountingPackage : public CT7QPackageV3 {
 public:
  using CT7QPackageV3::encode;
  void dump(std::ostringstream& out) const override {
    ++dumps;
    CT7QPackageV3::dump(out);
  }
  unsigned int encode(unsigned char*& buf) override {
    if (encodes) {
      return CT7QPackageV3::encode(buf);
    }
    buf = nullptr;
    return notEncoded;
  }
  bool encodes = true;
  unsigned int notEncoded = 0;
  mutable int dumps = 0;
};

TEST_F(Exchange, ReportsARequestThatCannotBeEncoded) {
  plays({answers});
  connects();
  for (const unsigned int result : {0U, 0xFFFFFFFFU}) {
    CountingPackage request;
    request.encodes = false;
    request.notEncoded = result;
    log.clear();
    EXPECT_EQ(link->sendMsg(&request), kNotEncoded);
    EXPECT_THAT(records(), ElementsAre("DBG 65619 Error:it failed to encode the V3 message!"));
  }
  ASSERT_EQ(sends(), 0U);
  EXPECT_EQ(peer.requests().size(), 1U);
}

TEST_F(Exchange, ReportsARecordThatIsTooLong) {
  plays({answers});
  connects();
  const std::string octets(60000, 'x');
  package[0].addOctets(1, octets.data(), octets.size());
  package[0].append(new CTLVCell(CTLVCell::TLV_OCTET, 2, octets.data(), octets.size()));
  EXPECT_EQ(sends(), kNotEncoded);
  EXPECT_THAT(peer.requests(), IsEmpty());
}

TEST_F(Exchange, MakesNoTextThatIsNotLogged) {
  const auto fails = [](auto& connection) { connection.answer({}, 1); };
  plays({[&](auto& connection) {
    for (int i = 0; i < 3; ++i) {
      connection.answer();
      fails(connection);
    }
  }});
  connects();
  const auto dumpsOf = [this](u_long mask, unsigned int result) {
    CountingPackage counting;
    log.log().priority_mask(mask, ACE_Log_Msg::PROCESS);
    EXPECT_EQ(link->sendMsg(&counting), result);
    return counting.dumps;
  };
  EXPECT_EQ(dumpsOf(0, 0), 0);
  EXPECT_EQ(dumpsOf(0, 1), 0);
  EXPECT_EQ(dumpsOf(LM_ERROR, 0), 0);
  EXPECT_EQ(dumpsOf(LM_ERROR, 1), 1);
  EXPECT_EQ(dumpsOf(LM_ERROR | LM_DEBUG, 0), 2);
  EXPECT_EQ(dumpsOf(LM_ERROR | LM_DEBUG, 1), 3);
}

TEST_F(Exchange, NamesTheOperationInEachRecord) {
  plays({answersOnly(0), answersOnly(28), [](PeerConnection& connection) {
           Message answer = answerTo(connection.request());
           answer[22] = static_cast<unsigned char>(answer[22] + 1);
           connection.send(answer);
           connection.answer({}, 5);
         }});
  connects(endless());
  for (const unsigned int result : {kSocketFailed, kBadReply, 5U, kSocketFailed}) {
    EXPECT_EQ(sends(), result);
  }
  CountingPackage refusing;
  refusing.encodes = false;
  link->sendMsg(&refusing);
  EXPECT_THAT(operations(),
              ElementsAre("65535 sendMsg", "65611 setupConnection", "65612 setupConnection",
                          "65613 sendMsg_i", "65614 recvData", "65615 recvData", "65616 recvData",
                          "65617 convert", "65618 convert", "65619 sendMsg", "65620 sendMsg"));
}

TEST_F(Exchange, TracesItsSteps) {
  plays({[](auto& connection) {
    connection.answer();
    connection.answer({}, 1);
  }});
  connects();
  const auto traced = [this](CT7QPackageV3& request) {
    log.log().priority_mask(LM_TRACE, ACE_Log_Msg::PROCESS);
    log.clear();
    link->sendMsg(&request);
    return messages("TRACE");
  };
  const std::string exchange = "unsigned int CQOVLongSocket::sendMsg(CT7QPackageV3*)";
  const std::string send =
      "unsigned int CQOVLongSocket::sendMsg_i(const unsigned char*, unsigned int)";
  const std::string receive = "unsigned int CQOVLongSocket::receiveMsg(CT7QPackageV3*)";
  const std::string data =
      "unsigned int CQOVLongSocket::recvData(char*, unsigned int&, const ACE_Time_Value*)";
  const std::string convert =
      "unsigned int CQOVLongSocket::convert(unsigned char*, unsigned int, CT7QPackageV3*)";
  const auto expected = [&](const std::string& ends, const std::string& converts) {
    return Strings{"enter " + exchange + "...", "enter " + send + "...",
                   "leave " + send + ": OK",    "enter " + receive + "...",
                   "enter " + data + "...",     "leave " + data + ": OK",
                   "enter " + convert + "...",  "leave " + convert + converts,
                   "leave " + receive + ": OK", "leave " + exchange + ends};
  };
  EXPECT_EQ(traced(package), expected(": OK", ": OK"));
  EXPECT_EQ(traced(package), expected(": NOK", ": NOK"));
  CountingPackage refusing;
  refusing.encodes = false;
  EXPECT_THAT(traced(refusing),
              ElementsAre("enter " + exchange + "...", "leave " + exchange + ": OK"));
}

TEST_F(Exchange, TracesWhichOfItsStepsHasFailed) {
  plays({answersOnly(0)});
  connects();
  log.log().priority_mask(LM_TRACE, ACE_Log_Msg::PROCESS);
  EXPECT_EQ(sends(), kSocketFailed);
  const auto left = messages("TRACE");
  const auto leaves = [](const std::string& signature) {
    return Contains("leave unsigned int CQOVLongSocket::" + signature);
  };
  EXPECT_THAT(left, leaves("sendMsg_i(const unsigned char*, unsigned int): OK"));
  EXPECT_THAT(left, leaves("recvData(char*, unsigned int&, const ACE_Time_Value*): NOK"));
  EXPECT_THAT(left, leaves("receiveMsg(CT7QPackageV3*): OK"));
  EXPECT_THAT(left, leaves("sendMsg_i(const unsigned char*, unsigned int): NOK"));
  EXPECT_THAT(left, leaves("sendMsg(CT7QPackageV3*): NOK"));
}

}  // namespace
}  // namespace qov::test
