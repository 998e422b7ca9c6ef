// What the dissector says of a request and its response.

#include <gtest/gtest.h>

#include <sstream>

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

  // Gives the frame of the first request.
  unsigned int askTwice(int milliseconds, std::uint16_t port, bool firstIsAnsweredAtLast) {
    Connection slow(capture_, port);
    slow.ask(message(7, ""));
    const unsigned int first = capture_.frames();
    capture_.pass(milliseconds);
    Connection(capture_, port).ask(message(7, ""));
    if (firstIsAnsweredAtLast) {
      slow.answer(message(7, ""));
    }
    return first;
  }

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

TEST_F(WiresharkExchanges, AreThoseOfOneConnectionWhereItsPortsAreTakenAgain) {
  for (const std::uint16_t port : {kEndpointPort, std::uint16_t{4444}}) {
    Connection before(capture_, port);
    before.ask(message(7, record(1)));
    before.ask(message(8, record(1)));
    before.answer(message(8, record(1)));
    Connection again(capture_, port, Network::kIpv4, before.clientPort());
    again.ask(message(8, record(2)));
    again.ask(message(7, record(2)));
    again.answer(message(7, record(2)));
    again.answer(message(8, record(2)));
  }
  dissect();
  ASSERT_EQ(shown_.size(), 14U);
  for (std::size_t i = 0; i < 14; i += 7) {
    EXPECT_EQ(responseIn(i), 0U);
    EXPECT_EQ(responseIn(i + 1), shown_[i + 2].frame);
    EXPECT_EQ(responseIn(i + 3), shown_[i + 6].frame);
    EXPECT_EQ(responseIn(i + 4), shown_[i + 5].frame);
    for (std::size_t j = i; j < i + 7; ++j) {
      EXPECT_EQ(repeats(j), 0U) << j;
    }
  }
  // The frames are first read without a tree, in which the number of the connection would stand.
  const Finished finished =
      Tshark({"-2"}).start(capture_.file(), {"-T", "fields", "-e", "qov.v3.response_to"});
  EXPECT_FALSE(tellsOfScriptError(finished)) << finished.err << finished.out;
  std::istringstream lines(finished.out);
  std::vector<std::string> responseTos{""};
  for (std::string line; std::getline(lines, line);) {
    responseTos.push_back(line);
  }
  for (std::size_t i = 0; i < shown_.size(); ++i) {
    EXPECT_EQ(responseTos.at(shown_[i].frame), tree(i).get("qov.v3.response_to", "").asString());
  }
}

TEST_F(WiresharkExchanges, TakeTheFirstRequestOfAConnectionForTheOneThatTheLastLeftUnanswered) {
  Connection givenUp(capture_);
  givenUp.ask(message(6, record(1)));
  givenUp.answer(message(6, record(1)));
  givenUp.ask(message(7, record(1)));
  const unsigned int asked = capture_.frames();
  Connection anew(capture_);
  anew.ask(message(7, record(1)));
  const unsigned int again = capture_.frames();
  anew.answer(message(7, record(1)));
  const unsigned int answered = capture_.frames();
  dissect();
  ASSERT_EQ(shown_.size(), 5U);
  EXPECT_EQ(repeats(3), asked);
  EXPECT_EQ(shown_[3].experts(), Names{"repeated"});
  EXPECT_EQ(responseIn(2), 0U);
  EXPECT_EQ(responseIn(3), answered);
  EXPECT_EQ(responseTo(4), again);
  EXPECT_EQ(repeats(4), 0U);
  const std::vector<std::string> lines =
      Tshark().fields(capture_.file(), "qov.v3.repeats", {"_ws.col.Info"});
  EXPECT_EQ(lines, (std::vector<std::string>{"Request SER=7 cmd=0x0000000000000001 records=1 "
                                             "cells=0 [repeats frame " +
                                             std::to_string(asked) + "]"}));
}

TEST_F(WiresharkExchanges, TakeItForTheSameBehindAnAnswerThatIsCutOffOrTooLong) {
  Connection cutOff(capture_);
  cutOff.ask(message(7, ""));
  const unsigned int first = capture_.frames();
  cutOff.sendLast(Side::kServer, message(7, record(1)).substr(0, 30));
  Connection tooLong(capture_);
  tooLong.ask(message(7, ""));
  const unsigned int second = capture_.frames();
  tooLong.answer(head(7, 2097125));
  Connection last(capture_);
  last.ask(message(7, ""));
  dissect();
  ASSERT_EQ(shown_.size(), 5U);
  EXPECT_EQ(repeats(2), first);
  EXPECT_EQ(repeats(4), second);
}

TEST_F(WiresharkExchanges, TakeItForTheSameWhenTheFirstIsAnsweredTooLateOnly) {
  const unsigned int first = askTwice(30000, 4444, true);
  askTwice(29900, 4445, true);
  dissect();
  ASSERT_EQ(shown_.size(), 6U);
  EXPECT_EQ(repeats(1), first);
  EXPECT_EQ(repeats(4), 0U);
}

TEST_F(WiresharkExchanges, TakeItForAnotherOnceNoAgentCanBeWaitingForTheFirst) {
  const unsigned int first = askTwice(91900, 4444, false);
  askTwice(92000, 4445, false);
  dissect();
  ASSERT_EQ(shown_.size(), 4U);
  EXPECT_EQ(repeats(1), first);
  EXPECT_EQ(repeats(3), 0U);
}

TEST_F(WiresharkExchanges, TakeItForAnotherWhoeverElseAsksTheSame) {
  const std::string request = message(7, record(1));
  Connection answered(capture_);
  answered.ask(request);
  answered.answer(message(7, ""));
  Connection(capture_).ask(request);

  Connection(capture_, 4444).ask(request);
  Connection(capture_, 4444, Network::kIpv6).ask(request);
  Connection(capture_, 4445).ask(request);
  Connection other(capture_, 4444);
  other.ask(message(7, record(2)));

  Connection late(capture_, 4446);
  late.ask(request);
  Connection second(capture_, 4446);
  second.ask(message(6, ""));
  second.answer(message(6, ""));
  second.ask(request);

  Connection goesOn(capture_, 4447);
  goesOn.ask(request);
  Connection atOnce(capture_, 4447);
  atOnce.ask(request);
  goesOn.ask(message(8, ""));
  dissect();
  ASSERT_EQ(shown_.size(), 14U);
  for (std::size_t i = 0; i < shown_.size(); ++i) {
    EXPECT_EQ(repeats(i), 0U) << i;
  }
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
