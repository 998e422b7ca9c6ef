// What the dissector says of a request and its response.

#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/wireshark/capture.h"
#include "tests/wireshark/messages.h"
#include "tests/wireshark/tshark.h"

namespace qov::test {
namespace {

class WiresharkExchanges : public ::testing::Test {
 protected:
  // Reads the capture twice, as Wireshark does: only then does a request know its answer.
  void dissect(std::vector<std::string> options = {}) {
    options.emplace_back("-2");
    shown_ = Tshark(options).messages(capture_.file());
  }

  const Json::Value& tree(std::size_t message) const { return shown_.at(message).tree; }
  // A frame number, or 0 if the message has none of that field.
  unsigned int frame(std::size_t message, const std::string& field) const {
    const Json::Value& value = tree(message)[field];
    return value.isNull() ? 0 : static_cast<unsigned int>(std::stoul(value.asString()));
  }
  unsigned int responseIn(std::size_t message) const {
    return frame(message, "qov.v3.response_in");
  }
  unsigned int responseTo(std::size_t message) const {
    return frame(message, "qov.v3.response_to");
  }
  unsigned int repeats(std::size_t message) const { return frame(message, "qov.v3.repeats"); }
  bool isResponse(std::size_t message) const { return tree(message).isMember("qov.v3.response"); }
  bool isRequest(std::size_t message) const { return tree(message).isMember("qov.v3.request"); }

  const TemporaryDirectory directory_;
  Capture capture_{directory_.file("exchanges.pcap")};
  std::vector<Shown> shown_;
};

using Names = std::vector<std::string>;

TEST_F(WiresharkExchanges, JoinARequestAndItsResponse) {
  Connection one(capture_);
  Connection two(capture_);
  one.ask(message(5, ""));
  const unsigned int first = capture_.frames();
  two.ask(message(5, ""));  // the same serial elsewhere
  const unsigned int second = capture_.frames();
  capture_.pass(1234);
  two.answer(message(5, ""));
  const unsigned int secondAnswer = capture_.frames();
  one.answer(message(5, ""));
  const unsigned int firstAnswer = capture_.frames();
  dissect();

  ASSERT_EQ(shown_.size(), 4U);
  EXPECT_TRUE(isRequest(0));
  EXPECT_FALSE(isResponse(0));
  EXPECT_TRUE(isResponse(2));
  EXPECT_FALSE(isRequest(2));
  EXPECT_EQ(responseIn(0), firstAnswer);
  EXPECT_EQ(responseIn(1), secondAnswer);
  EXPECT_EQ(responseTo(2), second);
  EXPECT_EQ(responseTo(3), first);
  EXPECT_EQ(tree(2)["qov.v3.time"].asString(), "1.235000000");
  EXPECT_EQ(tree(3)["qov.v3.time"].asString(), "1.237000000");
  for (const Shown& shown : shown_) {
    EXPECT_EQ(shown.experts(), Names());
    EXPECT_FALSE(shown.tree.isMember("qov.v3.repeats"));
  }
}

TEST_F(WiresharkExchanges, TellTheTimeThatTheyTakeToTheNanosecond) {
  Connection connection(capture_);
  for (std::uint16_t serial = 1; serial <= 200; ++serial) {
    connection.ask(message(serial, ""));
    capture_.pass(999);
    connection.answer(message(serial, ""));
    capture_.pass(serial);
  }
  dissect();
  ASSERT_EQ(shown_.size(), 400U);
  for (std::size_t i = 1; i < shown_.size(); i += 2) {
    ASSERT_EQ(tree(i)["qov.v3.time"].asString(), "1.000000000") << i;
  }
}

// Merged captures have such frames, and computers whose clock is set back.
TEST_F(WiresharkExchanges, TakeLessThanNoTimeIfTheCaptureHasItSo) {
  Connection connection(capture_);
  connection.ask(message(1, ""));
  capture_.pass(-501);
  connection.answer(message(1, ""));
  connection.ask(message(2, ""));
  capture_.pass(-1251);
  connection.answer(message(2, ""));
  dissect();
  ASSERT_EQ(shown_.size(), 4U);
  EXPECT_EQ(tree(1)["qov.v3.time"].asString(), "-0.500000000");
  EXPECT_EQ(tree(3)["qov.v3.time"].asString(), "-1.250000000");
}

TEST_F(WiresharkExchanges, AreToldApartByAddressesThatShareAName) {
  Connection four(capture_);
  Connection six(capture_, kEndpointPort, Network::kIpv6, four.clientPort());
  four.ask(message(1, ""));
  const unsigned int first = capture_.frames();
  six.ask(message(1, ""));
  six.answer(message(1, ""));
  four.answer(message(1, ""));
  writeFile(directory_.file("hosts"),
            "10.0.0.1 agent\nfd00::1 agent\n10.0.0.2 endpoint\nfd00::2 endpoint\n");
  dissect({"-N", "n", "-H", directory_.file("hosts")});
  ASSERT_EQ(shown_.size(), 4U);
  EXPECT_EQ(responseTo(2), first + 1);
  EXPECT_EQ(responseTo(3), first);
  for (std::size_t i = 0; i < shown_.size(); ++i) {
    EXPECT_EQ(repeats(i), 0U) << i;
  }
}

TEST_F(WiresharkExchanges, AreToldApartBySerialWhenManyAreUnderWay) {
  Connection connection(capture_);
  connection.ask(message(1, "") + message(2, "") + message(3, ""));
  const unsigned int asked = capture_.frames();
  connection.answer(message(3, ""));
  connection.answer(message(1, "") + message(2, ""));
  const unsigned int answered = capture_.frames();
  dissect();
  ASSERT_EQ(shown_.size(), 6U);
  EXPECT_EQ(responseIn(0), answered);
  EXPECT_EQ(responseIn(1), answered);
  EXPECT_EQ(responseIn(2), answered - 1);
  for (std::size_t i = 3; i < 6; ++i) {
    EXPECT_EQ(responseTo(i), asked);
  }
}

TEST_F(WiresharkExchanges, TakeARequestThatIsSentAgainForTheSame) {
  Connection connection(capture_);
  connection.ask(message(7, ""));
  const unsigned int asked = capture_.frames();
  connection.ask(message(8, ""));
  connection.ask(message(7, ""));
  connection.answer(message(7, ""));
  const unsigned int answered = capture_.frames();
  connection.answer(message(7, ""));
  dissect();
  ASSERT_EQ(shown_.size(), 5U);
  EXPECT_EQ(repeats(0), 0U);
  EXPECT_EQ(responseIn(0), answered);
  EXPECT_EQ(repeats(2), asked);
  EXPECT_EQ(responseIn(2), answered);
  EXPECT_EQ(shown_[2].experts(), Names{"repeated"});
  EXPECT_EQ(responseTo(3), asked);
  EXPECT_EQ(repeats(4), answered);
  EXPECT_EQ(responseTo(4), asked);
  EXPECT_FALSE(tree(4).isMember("qov.v3.time"));
}

TEST_F(WiresharkExchanges, BeginAnewWhenASerialComesAgainAfterItsAnswer) {
  Connection connection(capture_);
  connection.ask(message(7, ""));
  connection.answer(message(7, ""));
  connection.ask(message(7, ""));
  const unsigned int asked = capture_.frames();
  connection.answer(message(7, ""));
  const unsigned int answered = capture_.frames();
  dissect();
  ASSERT_EQ(shown_.size(), 4U);
  EXPECT_EQ(responseIn(0), asked - 1);
  EXPECT_EQ(responseIn(2), answered);
  EXPECT_EQ(responseTo(3), asked);
  EXPECT_EQ(repeats(2), 0U);
  EXPECT_EQ(repeats(3), 0U);
}

TEST_F(WiresharkExchanges, ShowAResponseThatNobodyAwaits) {
  Connection connection(capture_);
  connection.ask(message(1, ""));
  connection.answer(message(2, ""));
  dissect();
  ASSERT_EQ(shown_.size(), 2U);
  EXPECT_EQ(shown_[1].experts(), Names{"serial"});
  EXPECT_EQ(responseTo(1), 0U);
  EXPECT_EQ(responseIn(0), 0U);
}

TEST_F(WiresharkExchanges, KnowWhoAsksByThePortOrByWhoSpeaksFirst) {
  Connection joinedLate(capture_);
  joinedLate.answer(message(1, ""));
  Connection otherPort(capture_, 4444);
  otherPort.ask(message(1, ""));
  otherPort.answer(message(1, ""));
  dissect();
  ASSERT_EQ(shown_.size(), 3U);
  EXPECT_TRUE(isResponse(0));
  EXPECT_FALSE(isRequest(0));
  EXPECT_TRUE(isRequest(1));
  EXPECT_FALSE(isResponse(1));
  EXPECT_TRUE(isResponse(2));
  EXPECT_FALSE(isRequest(2));
}

// What is first read without a tree, in which the script could look something up, and joined then.
TEST_F(WiresharkExchanges, AreToldToThoseWhoSeeNothingElse) {
  Connection connection(capture_);
  connection.ask(message(1, "").substr(0, 20));
  connection.ask(message(1, "").substr(20));
  connection.sendLast(Side::kServer, message(1, record(5)));
  const Finished finished =
      Tshark({"-2", "-o", "gui.column.format:\"Info\",\"%i\""}).start(capture_.file(), {});
  EXPECT_FALSE(tellsOfScriptError(finished)) << finished.err << finished.out;
  EXPECT_NE(finished.out.find("\nRequest SER=1 records=0 cells=0\n"), std::string::npos)
      << finished.out;
  EXPECT_NE(finished.out.find("\nResponse SER=1 cmd=0x0000000000000005 records=1 cells=0\n"),
            std::string::npos)
      << finished.out;
}

TEST_F(WiresharkExchanges, AreToldInTheInfoColumn) {
  const std::string end =
      record(0x100000003, cell(4093, kUint, "\x07") + cell(4095, kEnum, "\x01"));
  Connection connection(capture_);
  connection.ask(message(1, record(0x100000003)));
  connection.answer(message(1, end));
  connection.ask(message(2, "") + message(3, ""));
  connection.answer(message(2, "", 16));
  const std::vector<std::string> lines =
      Tshark().fields(capture_.file(), "qov.v3", {"_ws.col.Protocol", "_ws.col.Info"});
  EXPECT_EQ(lines, (std::vector<std::string>{
                       "QOV V3\tRequest SER=1 cmd=0x0000000100000003 records=1 cells=0",
                       "QOV V3\tResponse SER=1 cmd=0x0000000100000003 records=1 cells=2 status=1",
                       "QOV V3\tRequest SER=2 records=0 cells=0 | Request SER=3 records=0 cells=0",
                       "QOV V3\tResponse SER=2 RET=16 records=0 cells=0"}));
}

}  // namespace
}  // namespace qov::test
