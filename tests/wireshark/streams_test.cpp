// How the dissector finds the messages in what a capture has of a connection.

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/files.h"
#include "tests/wireshark/capture.h"
#include "tests/wireshark/messages.h"
#include "tests/wireshark/tshark.h"
#include "tests/wireshark/vectors.h"

namespace qov::test {
namespace {

using ::testing::Test;

constexpr unsigned int kLongestBody = 2097152 - 28;

class WiresharkStreams : public Test {
 protected:
  // What there is of that connection, message by message: "<SER>" or, of bytes that are none,
  // "<count> stray", then the names of the expert items but `repeated`.
  std::vector<std::string> shownOf(const Connection& connection) const {
    std::vector<std::string> texts;
    for (const Shown& shown : shown_) {
      if (shown.clientPort == connection.clientPort()) {
        texts.push_back(textOf(shown));
      }
    }
    return texts;
  }

  void dissect(const Tshark& tshark = Tshark()) { shown_ = tshark.messages(capture_.file()); }

  const TemporaryDirectory directory_;
  Capture capture_{directory_.file("streams.pcap")};
  std::vector<Shown> shown_;

 private:
  static std::string textOf(const Shown& shown) {
    std::string text;
    if (shown.tree.isMember("qov.v3.ser")) {
      text = shown.tree["qov.v3.ser"].asString();
    } else {
      const std::string data = shown.tree["qov.v3.data"].asString();
      text = std::to_string((data.size() + 1) / 3) + " stray";
    }
    for (const std::string& expert : shown.experts()) {
      text += expert == "repeated" ? "" : " " + expert;
    }
    return text;
  }
};

using Texts = std::vector<std::string>;

TEST_F(WiresharkStreams, GoOnAtTheNextHeadBehindBytesThatAreNoMessage) {
  const std::string row = message(2, record(1, cell(1, kUint, "\x01")));

  Connection between(capture_);
  between.ask(message(1, "") + "no message" + row + std::string(5, '\0'));
  between.ask(message(3, ""));

  Connection joinedLate(capture_);
  joinedLate.ask(row.substr(20));
  joinedLate.ask(row);

  // Every way in which the segment's end can cut the signature behind the garbage.
  std::vector<Connection> cuts;
  for (std::size_t cut = 1; cut < 12; ++cut) {
    cuts.emplace_back(capture_);
    cuts.back().ask("UUU?" + row.substr(0, cut));
    cuts.back().ask(row.substr(cut));
  }

  Connection onlyGarbage(capture_);
  onlyGarbage.ask("GET / HTTP/1.0\r\n\r\n");
  onlyGarbage.ask("UUUU");  // may be a head, and never becomes one
  onlyGarbage.ask("and no more than that, which is above 28 bytes");

  dissect();
  EXPECT_EQ(shownOf(between), (Texts{"1", "10 stray magic", "2", "5 stray magic", "3"}));
  EXPECT_EQ(shownOf(joinedLate), (Texts{"23 stray magic", "2"}));
  for (const Connection& cut : cuts) {
    EXPECT_EQ(shownOf(cut), (Texts{"4 stray magic", "2"})) << cut.clientPort();
  }
  EXPECT_EQ(shownOf(onlyGarbage),
            (Texts{"18 stray magic", "24936 length result version", "22 stray magic"}));
}

TEST_F(WiresharkStreams, ReadLenAsAnAgentDoes) {
  Connection negative(capture_);
  negative.ask(head(1, 0xFFFFFFFF) + head(2, 0x80000000) + message(3, ""));
  Connection zero(capture_);
  zero.ask(message(1, "") + message(2, ""));
  Connection tooLarge(capture_);
  tooLarge.ask(head(1, kLongestBody + 1) + message(2, ""));
  Connection largest(capture_);
  largest.ask(head(1, kLongestBody) + message(2, ""));  // the second is the first one's body
  Connection largestEnds(capture_);
  largestEnds.sendLast(Side::kClient, head(1, kLongestBody));

  dissect();
  EXPECT_EQ(shownOf(negative), (Texts{"1 length", "2 length", "3"}));
  EXPECT_EQ(shownOf(zero), (Texts{"1", "2"}));
  EXPECT_EQ(shownOf(tooLarge), (Texts{"1 length", "2"}));
  EXPECT_EQ(shownOf(largest), Texts());
  EXPECT_EQ(shownOf(largestEnds), (Texts{"1 cut length"}));
  EXPECT_NE(shown_.front().expertText("length").find("negative"), std::string::npos);
}

TEST_F(WiresharkStreams, LeaveTheLenOfAnotherVersionAsItIs) {
  Connection connection(capture_);
  std::string other = message(1, "twelve bytes");
  other[4] = 2;
  connection.ask(other + message(2, ""));
  dissect();
  EXPECT_EQ(shownOf(connection), (Texts{"1 version", "2"}));
}

TEST_F(WiresharkStreams, PutSegmentsThatComeInDisorderInOrder) {
  const std::string bytes =
      message(1, record(1, cell(1, kString, "in three pieces" + std::string(1, '\0'))));
  Connection connection(capture_);
  connection.ask(message(9, ""));
  const std::size_t begin = message(9, "").size();
  connection.sendAt(Side::kClient, begin, bytes.substr(0, 20));
  connection.sendAt(Side::kClient, begin + 40, bytes.substr(40) + message(2, ""));
  connection.sendAt(Side::kClient, begin + 20, bytes.substr(20, 20));
  connection.sendAt(Side::kClient, begin + bytes.size() + 28, message(3, ""));
  dissect(Tshark({"-o", "tcp.reassemble_out_of_order:TRUE"}));
  EXPECT_EQ(shownOf(connection), (Texts{"9", "1", "2", "3"}));
  EXPECT_EQ(shown_[1].tree["qov.v3.record"]["qov.v3.cell"]["qov.v3.cell.string"],
            "in three pieces");
}

TEST_F(WiresharkStreams, ShowWhatIsSentAgainOnce) {
  const std::string bytes = message(1, record(1));
  Connection whole(capture_);
  whole.ask(bytes);
  whole.sendAt(Side::kClient, 0, bytes);
  whole.answer(message(1, ""));
  whole.ask(message(2, ""));
  Connection inPieces(capture_);
  inPieces.ask(bytes.substr(0, 30));
  inPieces.sendAt(Side::kClient, 0, bytes.substr(0, 30));
  inPieces.ask(bytes.substr(30));
  inPieces.sendAt(Side::kClient, 30, bytes.substr(30));
  inPieces.ask(message(2, ""));
  dissect();
  EXPECT_EQ(shownOf(whole), (Texts{"1", "1", "2"}));  // a request, its answer and a request
  EXPECT_EQ(shownOf(inPieces), (Texts{"1", "2"}));
}

TEST_F(WiresharkStreams, GoOnBehindALostSegment) {
  const std::string bytes = message(1, record(1, cell(1, kUint, "\x01")));
  Connection connection(capture_);
  connection.ask(bytes.substr(0, 10));
  connection.lose(Side::kClient, 20);
  connection.ask(bytes.substr(30) + message(2, ""));
  connection.ask(message(3, ""));
  dissect();
  EXPECT_EQ(shownOf(connection), (Texts{"13 stray magic", "2", "3"}));
}

TEST_F(WiresharkStreams, AreFoundOverIpv6AndOnOtherPorts) {
  Connection six(capture_, kEndpointPort, Network::kIpv6);
  six.ask(message(1, ""));
  six.answer(message(1, ""));
  Connection other(capture_, 4444);
  other.ask(message(2, "") + message(3, "").substr(0, 20));
  other.ask(message(3, "").substr(20));
  other.answer("no message");  // by now it is known whose connection that is
  Connection foreign(capture_, 4444);
  foreign.ask("UUUU is how other people begin");
  dissect();
  EXPECT_EQ(shownOf(six), (Texts{"1", "1"}));
  EXPECT_EQ(shownOf(other), (Texts{"2", "3", "10 stray magic"}));
  EXPECT_EQ(shownOf(foreign), Texts());
}

TEST_F(WiresharkStreams, AreTakenOnThePortsOfThePreference) {
  Connection usual(capture_);
  usual.ask("no message");
  Connection single(capture_, 4444);
  single.ask("no message");
  Connection inRange(capture_, 4501);
  inRange.ask("no message");
  dissect(Tshark({"-o", "qov.v3.ports:4444,4500-4502"}));
  EXPECT_EQ(shownOf(usual), Texts());
  EXPECT_EQ(shownOf(single), (Texts{"10 stray magic"}));
  EXPECT_EQ(shownOf(inRange), (Texts{"10 stray magic"}));
}

TEST_F(WiresharkStreams, AreShownAsFarAsTheCaptureGoes) {
  const std::string bytes =
      message(1, record(1, cell(1, kUint, "\x01") + cell(2, kOctet, "abc")) + record(2));
  const std::size_t ahead = 14 + 20 + 20;
  std::vector<Connection> connections;
  for (std::size_t kept = 1; kept <= bytes.size(); ++kept) {
    capture_.keepAtMost(ahead + kept);
    connections.emplace_back(capture_);
    connections.back().ask(bytes);
  }
  dissect();
  ASSERT_EQ(shown_.size(), bytes.size());
  for (std::size_t kept = 1; kept <= bytes.size(); ++kept) {
    const std::string wanted = kept < 28             ? std::to_string(kept) + " stray cut"
                               : kept < bytes.size() ? "1 cut"
                                                     : "1";
    EXPECT_EQ(shownOf(connections[kept - 1]), Texts{wanted}) << kept;
  }
  // With the last byte of a cell comes the cell.
  EXPECT_EQ(all(shown_[28 + 10 + 5 - 2].tree["qov.v3.record"], "qov.v3.cell").size(), 0U);
  EXPECT_EQ(all(shown_[28 + 10 + 5 - 1].tree["qov.v3.record"], "qov.v3.cell").size(), 1U);
}

TEST_F(WiresharkStreams, AreShownInPiecesIfSegmentsMayNotBeJoined) {
  Connection connection(capture_);
  const std::string bytes = message(1, record(1, cell(1, kUint, "\x01")));
  connection.ask(bytes.substr(0, 38));
  connection.ask(bytes.substr(38));
  connection.ask(message(2, ""));
  dissect(Tshark({"-o", "tcp.desegment_tcp_streams:FALSE"}));
  EXPECT_EQ(shownOf(connection), (Texts{"1 cut", "5 stray magic", "2"}));
}

// Every byte of every vector with other bits, and every vector cut at every byte.
TEST_F(WiresharkStreams, NeverMakeTheScriptFail) {
  std::vector<std::string> inputs;
  for (const StreamVector& vector : vectorsOfV3()) {
    for (std::size_t at = 0; at < vector.bytes.size(); ++at) {
      inputs.push_back(vector.bytes.substr(0, at + 1));
      for (const unsigned int bits : {0x09U, 0xF0U}) {
        inputs.push_back(vector.bytes);
        inputs.back()[at] = static_cast<char>(static_cast<unsigned char>(inputs.back()[at]) ^ bits);
      }
    }
  }
  for (const std::string& input : inputs) {
    Connection(capture_).sendLast(Side::kClient, input);
  }
  const Finished finished = Tshark().start(
      capture_.file(), {"-Y", "qov.v3 || _ws.lua.error", "-T", "fields", "-e", "_ws.lua.error",
                        "-e", "frame.protocols", "-E", "separator=|"});
  EXPECT_EQ(finished.status, 0) << finished.err;
  EXPECT_FALSE(tellsOfScriptError(finished)) << finished.err << finished.out.substr(0, 2000);
  std::istringstream lines(finished.out);
  std::size_t dissected = 0;
  for (std::string line; std::getline(lines, line);) {
    ASSERT_EQ(line.find("|eth:ethertype:ip:tcp:qov.v3"), 0U) << line;
    ASSERT_EQ(line.find("malformed"), std::string::npos) << line;
    ++dissected;
  }
  EXPECT_EQ(dissected, inputs.size());
}

TEST(WiresharkScript, IsHeardWhenItFails) {
  const TemporaryDirectory directory;
  Capture capture(directory.file("one.pcap"));
  Connection(capture).ask(message(1, ""));
  const std::string script = readFile(QOV_DISSECTOR);
  writeFile(directory.file("syntax.lua"), script + "\nlocal = 1\n");
  writeFile(directory.file("loading.lua"), script + "\nnothing.more()\n");
  writeFile(directory.file("dissecting.lua"),
            script + "\nfunction qov.dissector() return nothing.more end\n");
  for (const char* const name : {"syntax.lua", "loading.lua", "dissecting.lua"}) {
    Tshark tshark;
    tshark.useScript(directory.file(name));
    EXPECT_TRUE(tellsOfScriptError(tshark.start(capture.file(), {"-V"}))) << name;
  }
  EXPECT_FALSE(tellsOfScriptError(Tshark().start(capture.file(), {"-V"})));
}

}  // namespace
}  // namespace qov::test
