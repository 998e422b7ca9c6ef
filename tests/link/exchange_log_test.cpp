#include <thread>

#include "tests/link/exchange_fixture.h"
#include "tests/support/latch.h"

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace qov::test {
namespace {

class ExchangeLog : public LinkTest {};

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

TEST_F(ExchangeLog, ReportsARequestThatCannotBeEncoded) {
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

TEST_F(ExchangeLog, ReportsARecordThatIsTooLong) {
  plays({answers});
  connects();
  const std::string octets(60000, 'x');
  package[0].addOctets(1, octets.data(), octets.size());
  package[0].append(new CTLVCell(CTLVCell::TLV_OCTET, 2, octets.data(), octets.size()));
  EXPECT_EQ(sends(), kNotEncoded);
  EXPECT_THAT(peer.requests(), IsEmpty());
}

TEST_F(ExchangeLog, MakesNoTextThatIsNotLogged) {
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

/// Says when it is dumped, and waits there.
class WaitingPackage : public CT7QPackageV3 {
 public:
  void dump(std::ostringstream& out) const override {
    dumped.count();
    waitedInVain = !released.waitFor();
    CT7QPackageV3::dump(out);
  }
  mutable Latch dumped;
  mutable Latch released;
  mutable bool waitedInVain = true;
};

TEST_F(ExchangeLog, LetsOtherExchangesInWhileItMakesTheTextOfAFailure) {
  plays({[](auto& connection) {
    connection.answer({}, 5);
    connection.answer();
  }});
  connects();
  log.log().priority_mask(LM_ERROR, ACE_Log_Msg::PROCESS);
  WaitingPackage refused;
  std::thread other([&] {
    EXPECT_TRUE(refused.dumped.waitFor());
    EXPECT_EQ(sends(), 0U);
    refused.released.count();
  });
  EXPECT_EQ(link->sendMsg(&refused), 5U);
  other.join();
  EXPECT_FALSE(refused.waitedInVain);
}

TEST_F(ExchangeLog, NamesTheOperationInEachRecord) {
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
                          "65617 convert", "65618 convert", "65619 sendMsg", "65620 sendMsg",
                          "65830 setupConnection"));
}

TEST_F(ExchangeLog, TracesItsSteps) {
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

TEST_F(ExchangeLog, TracesWhichOfItsStepsHasFailed) {
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

TEST_F(ExchangeLog, LogsWhatItSendsAndReceives) {
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

}  // namespace
}  // namespace qov::test
