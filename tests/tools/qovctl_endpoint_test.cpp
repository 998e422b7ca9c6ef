#include <signal.h>
#include <sys/socket.h>

#include <memory>
#include <sstream>

#include "tests/link/scripted_peer.h"
#include "tests/support/latch.h"
#include "tests/tools/qovctl_test.h"
#include "tools/common/endpoint_protocol.h"
#include "tools/common/json_object.h"

using ::testing::ContainsRegex;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

namespace qov::test {
namespace {

using tests::Bytes;

constexpr std::uint64_t kGetNext = 1ULL << 32;
constexpr std::uint64_t kGet = 2ULL << 32;
constexpr std::uint64_t kStore = 3ULL << 32;
constexpr std::uint64_t kCounts = 4ULL << 32;

constexpr unsigned int kString = 2;
constexpr unsigned int kUint = 3;
constexpr unsigned int kEnum = 6;

/// A row of table 1 with the cells name, mtu, cursor and status.
Bytes row(const std::string& name, unsigned int key, unsigned int status = 0) {
  const auto text = static_cast<unsigned int>(name.size() + 1);
  Bytes bytes;
  bytes.record(kGetNext + 1, 4 + text + 4 + 2 + 4 + 1 + 4 + 1);
  bytes.cell(1, kString, text).text(name).u8(0).cell(4, kUint, 2).u16(1500);
  bytes.cell(4093, kUint, 1).u8(key).cell(4095, kEnum, 1).u8(status);
  return bytes;
}

/// What ends a walk.
Bytes endOfWalk() {
  return recordBytes(kGetNext + 1, 1);
}

/// The records in the body of a request.
std::vector<unsigned char> recordsOf(const Message& request) {
  return {request.begin() + 28, request.end()};
}

class QovctlEndpoint : public QovctlTest {
 protected:
  void plays(std::vector<ScriptedPeer::Script> scripts) {
    peer_ = std::make_unique<ScriptedPeer>(std::move(scripts));
  }
  /// Plays the script on a connection, and again on the one that is made when it has failed.
  void playsTwice(const ScriptedPeer::Script& script) { plays({script, script}); }

  /// The arguments, and where the peer listens.
  std::vector<std::string> toPeer(std::vector<std::string> arguments) const {
    arguments.insert(arguments.end(), {"--endpoint", peer_->address()});
    return arguments;
  }
  QovctlRun ask(const std::vector<std::string>& arguments, const std::string& input = {}) {
    return run(toPeer(arguments), input);
  }
  QovctlRun walk(std::vector<std::string> arguments = {}) {
    arguments.insert(arguments.begin(), {"walk", "--table", "interfaces"});
    return ask(arguments);
  }
  /// The same rows as those of a table that qovctl has no names for.
  QovctlRun walkUnnamed() { return ask({"walk", "--table", "0x1001"}); }

  ScriptedPeer& peer() { return *peer_; }
  std::vector<unsigned char> firstRecords() const { return recordsOf(peer_->requests().at(0)); }

 private:
  std::unique_ptr<ScriptedPeer> peer_;
};

TEST_F(QovctlEndpoint, WalksATableAndPrintsItsRows) {
  plays({[](PeerConnection& link) {
    link.answer(row("lo", 1));
    link.answer(row("enp0s31f6", 12));
    link.answer(endOfWalk());
  }});
  const QovctlRun walked = walk();
  EXPECT_EQ(walked.status, 0);
  EXPECT_EQ(walked.err, "");
  EXPECT_EQ(walked.out,
            "key       name      up        hardware  mtu       received  sent\n"
            "1         lo                            1500\n"
            // The longer name pushes on what is behind it, from this row on.
            "12        enp0s31f6                      1500\n");
  const auto requests = peer().requests();
  ASSERT_EQ(requests.size(), 3U);
  EXPECT_EQ(recordsOf(requests[0]), Bytes().record(kGetNext + 1, 0).data());
  // The row's record goes back as it came.
  EXPECT_EQ(recordsOf(requests[1]), row("lo", 1).data());
}

TEST_F(QovctlEndpoint, WalksBehindAKey) {
  plays({[](PeerConnection& link) { link.answer(endOfWalk()); }});
  const QovctlRun walked = ask({"walk", "--table", "0x1001", "--after", "300"});
  EXPECT_EQ(walked.status, 0);
  EXPECT_EQ(walked.out, "");
  EXPECT_EQ(firstRecords(),
            Bytes().record(kGetNext + 0x1001, 6).cell(4093, kUint, 2).u16(300).data());
}

TEST_F(QovctlEndpoint, PrintsRowsAsJson) {
  plays({[](PeerConnection& link) {
    link.answer(row("lo", 1));
    link.answer(row("eth0", 2));
    link.answer(endOfWalk());
  }});
  const Json::Value document = tools::parseJson(walk({"--json"}).out);
  EXPECT_EQ(document["kind"], "v3");
  // A message for each row, without the one that ends the walk.
  ASSERT_EQ(document["messages"].size(), 2U);
  for (const int i : {0, 1}) {
    const Json::Value& message = document["messages"][i];
    EXPECT_EQ(message["head"]["ser"], i + 1);
    ASSERT_EQ(message["records"].size(), 1U);
    EXPECT_EQ(message["records"][0]["cells"][0]["value"], i == 0 ? "lo" : "eth0");
    EXPECT_EQ(message["records"][0]["cells"][2]["tag"], 4093);
  }
}

TEST_F(QovctlEndpoint, PrintsATableWithoutRowsAsJson) {
  plays({[](PeerConnection& link) { link.answer(endOfWalk()); }});
  const Json::Value document = tools::parseJson(walk({"--json"}).out);
  EXPECT_EQ(document["kind"], "v3");
  EXPECT_EQ(document["messages"], Json::Value(Json::arrayValue));
}

TEST_F(QovctlEndpoint, EndsTheJsonOfAWalkThatFails) {
  plays({[](PeerConnection& link) {
    link.answer(row("lo", 1));
    link.answer({}, 2);
  }});
  const QovctlRun failed = walk({"--json"});
  EXPECT_EQ(failed.status, 5);
  EXPECT_EQ(tools::parseJson(failed.out)["messages"].size(), 1U);
}

TEST_F(QovctlEndpoint, PrintsTheRepliesOfAWalkAsTheLogsHaveThem) {
  plays({[](PeerConnection& link) {
    link.answer(row("lo", 1));
    link.answer(endOfWalk());
  }});
  const QovctlRun walked = walk({"--dump", "--verbose"});
  EXPECT_THAT(walked.out, HasSubstr("    cmd = 4294967297, length = 23\n"
                                    "    {T,L,V=1,3,String: strlen:2}\n"
                                    "    {T,L,V=4,2,Uint: 1500}\n"
                                    "    {T,L,V=4093,1,Uint: 1}\n"
                                    "    {T,L,V=4095,1,Enum: 0}\n"
                                    "  }\n}\n{\nRET=0\n"));
  EXPECT_THAT(walked.out, EndsWith("LEN=15\n"
                                   "  {/*record*/\n"
                                   "    cmd = 4294967297, length = 5\n"
                                   "    {T,L,V=4095,1,Enum: 1}\n"
                                   "  }\n}\n"));
  // The link's log has each of these texts.
  std::string logged;
  const std::string received = "received:\n";
  for (std::size_t at = walked.err.find(received); at != std::string::npos;
       at = walked.err.find(received, at)) {
    at += received.size();
    const std::size_t end = walked.err.find("\n}\n", at) + 3;
    logged += walked.err.substr(at, end - at);
  }
  EXPECT_EQ(walked.out, logged);
}

TEST_F(QovctlEndpoint, PrintsEachRowAsItComes) {
  const std::vector<std::pair<std::string, std::string>> formats{
      {"--verbose", "1500\n"}, {"--json", "\"first\""}, {"--dump", "strlen:5"}};
  for (const auto& [format, text] : formats) {
    Latch printed;
    plays({[&](PeerConnection& link) {
      link.answer(row("first", 1));
      const Message next = link.request();
      EXPECT_TRUE(printed.waitFor());
      link.send(answerTo(next, endOfWalk()));
    }});
    start(toPeer({"walk", "--table", "interfaces", format}));
    EXPECT_TRUE(waitForOutput(text)) << format;
    printed.count();
    EXPECT_EQ(finish().status, 0);
    peer().join();
  }
}

TEST_F(QovctlEndpoint, DumpsTheBadReplyOfAWalkButNoRefusedOne) {
  plays({[](PeerConnection& link) { link.answer(Bytes().record(1, 0).record(2, 0)); }});
  EXPECT_THAT(walk({"--dump"}).out, HasSubstr("cmd = 2"));
  plays({[](PeerConnection& link) { link.answer(Bytes().record(1, 0), 4); }});
  EXPECT_EQ(walk({"--dump"}).out, "");
}

TEST_F(QovctlEndpoint, NamesTheColumnsAgainWithOneMore) {
  plays({[](PeerConnection& link) {
    link.answer(row("lo", 1));
    link.answer(
        Bytes().record(kGetNext + 1, 10).cell(2, kUint, 1).u8(7).cell(4093, kUint, 1).u8(2));
    link.answer(row("eth0", 3));
    link.answer(endOfWalk());
  }});
  EXPECT_EQ(walkUnnamed().out,
            "key       tag 1     tag 4\n"
            "1         lo        1500\n"
            "key       tag 1     tag 2     tag 4\n"
            "2                   7\n"
            "3         eth0                1500\n");
}

TEST_F(QovctlEndpoint, ShowsValuesSoThatTheyCannotSteerATerminal) {
  plays({[](PeerConnection& link) {
    link.answer(row("a\x1b[2J\n\xc2\x9b\xc3\xbc", 1));
    link.answer(row("\xff", 2));
    link.answer(endOfWalk());
  }});
  EXPECT_EQ(walkUnnamed().out,
            "key       tag 1                  tag 4\n"
            "1         a\\x1b[2J\\x0a\\xc2\\x9b\xc3\xbc  1500\n"
            "2         0xff                   1500\n");
}

TEST_F(QovctlEndpoint, ShowsValuesSoThatTheyCannotTurnTheDirectionOfWriting) {
  const std::vector<std::string> turning{"\xd8\x9c",     "\xe2\x80\x8e", "\xe2\x80\x8f",
                                         "\xe2\x80\xaa", "\xe2\x80\xae", "\xe2\x81\xa6",
                                         "\xe2\x81\xa9"};
  const std::vector<std::string> others{"\xd8\x9b",     "\xe2\x80\x8d", "\xe2\x80\x90",
                                        "\xe2\x80\xa9", "\xe2\x80\xaf", "\xe2\x81\xa5",
                                        "\xe2\x81\xaa"};
  plays({[&](PeerConnection& link) {
    for (const auto* texts : {&turning, &others}) {
      for (const std::string& text : *texts) {
        link.answer(row(text + "txt.exe", 1));
      }
    }
    link.answer(endOfWalk());
  }});
  const std::string shown = walkUnnamed().out;
  peer().join();
  for (const std::string& text : turning) {
    EXPECT_THAT(shown, Not(HasSubstr(text)));
  }
  for (const std::string& text : others) {
    EXPECT_THAT(shown, HasSubstr(text + "txt.exe"));
  }
  EXPECT_THAT(shown, HasSubstr("\\xd8\\x9ctxt.exe"));
  EXPECT_THAT(shown, HasSubstr("\\xe2\\x80\\xaetxt.exe"));
}

TEST_F(QovctlEndpoint, ShowsEveryCellOfARowWhoseTagsAreNotDistinct) {
  plays({[](PeerConnection& link) {
    link.answer(Bytes()
                    .record(kGetNext + 1, 18)
                    .cell(4, kUint, 1)
                    .u8(7)
                    .cell(4, kUint, 1)
                    .u8(8)
                    .cell(1, kString, 4)
                    .text("abc")
                    .u8(0));
    link.answer(endOfWalk());
  }});
  EXPECT_EQ(walkUnnamed().out,
            "tag 1     tag 4\n"
            "abc       7, 8\n");
}

TEST_F(QovctlEndpoint, DoesNotPadARowForTheLongValueOfAnother) {
  plays({[](PeerConnection& link) {
    link.answer(row(std::string(1000, 'x'), 1));
    link.answer(row("lo", 2));
    link.answer(endOfWalk());
  }});
  const QovctlRun walked = walkUnnamed();
  EXPECT_THAT(walked.out, HasSubstr(std::string(1000, 'x') + "  1500\n"));
  EXPECT_THAT(walked.out, EndsWith("\n2         lo" + std::string(60, ' ') + "1500\n"));
}

TEST_F(QovctlEndpoint, GetsOneRow) {
  plays({[](PeerConnection& link) { link.answer(row("lo", 1)); }});
  const QovctlRun got = ask({"get", "--table", "interfaces", "1"});
  EXPECT_EQ(got.status, 0);
  EXPECT_EQ(got.out, "name  lo\nmtu   1500\nkey   1\n");
  EXPECT_EQ(firstRecords(), Bytes().record(kGet + 1, 5).cell(4093, kUint, 1).u8(1).data());
}

TEST_F(QovctlEndpoint, GetsTheCounts) {
  plays({[](PeerConnection& link) {
    link.answer(Bytes().record(kCounts, 11).cell(1, kUint, 2).u16(300).cell(7, kUint, 1).u8(2));
  }});
  const QovctlRun got = ask({"get", "counts"});
  EXPECT_EQ(got.status, 0);
  EXPECT_EQ(got.out, "connections  300\nrefusals     2\n");
  EXPECT_EQ(firstRecords(), Bytes().record(kCounts, 0).data());
}

/// A request that stores a record with a text and a number, as JSON.
constexpr const char* kRequest = R"({"head":{"ssk":5},"records":[{"cmd":12884906000,"cells":[
  {"tag":1,"type":"String","value":"a"},{"tag":2,"type":"Uint","value":5,"length":4}]}]})";

TEST_F(QovctlEndpoint, SendsAMessageGivenInJson) {
  const Bytes records = Bytes()
                            .record(kStore + 4112, 14)
                            .cell(1, kString, 2)
                            .text("a")
                            .u8(0)
                            .cell(2, kUint, 4)
                            .u32(5);
  const std::string document = "{\"kind\":\"v3\",\"messages\":[" + std::string(kRequest) + "]}";
  for (const std::string& text : {std::string(kRequest), document}) {
    for (const std::string& from : {std::string("-"), file("request", text)}) {
      plays({[](PeerConnection& link) { link.answer(recordBytes(9, 0)); }});
      const QovctlRun sent = ask({"send", from}, text);
      EXPECT_EQ(sent.status, 0) << sent.err;
      EXPECT_EQ(firstRecords(), records.data());
      EXPECT_EQ(peer().requests()[0][12], 5);
      EXPECT_THAT(sent.out, StartsWith("{\nRET=0\n"));
      EXPECT_THAT(sent.out, HasSubstr("SER=1\n"));
      EXPECT_THAT(sent.out, HasSubstr("    cmd = 9, length = 5\n"));
    }
  }
}

TEST_F(QovctlEndpoint, SendsAMessageGivenByOptions) {
  plays({[](PeerConnection& link) { link.answer(); }});
  const QovctlRun sent =
      ask({"send", "--json", "--command", "store/0x1000", "--cell", "1:String:a:b, c", "--cell",
           "2:Int:-2", "--cell", "5:Uint:0x0100", "--command", "7", "--command=get-next/mounts",
           "--cell=3:Octet:0aFF", "--cell", "4:Json:{\"a\":[]}"});
  EXPECT_EQ(sent.status, 0) << sent.err;
  EXPECT_EQ(tools::parseJson(sent.out)["messages"][0]["head"]["ser"], 1);
  Bytes records;
  records.record(kStore + 0x1000, 22).cell(1, kString, 7).text("a:b, c").u8(0);
  records.cell(2, 4, 1).u8(0xFE).cell(5, kUint, 2).u16(0x100).record(7, 0);
  records.record(kGetNext + 2, 19).cell(3, 1, 2).u8(0x0A).u8(0xFF);
  records.cell(4, 8, 9).text("{\"a\":[]}").u8(0);
  EXPECT_EQ(firstRecords(), records.data());
}

TEST_F(QovctlEndpoint, RefusesAMessageThatIsNoneBeforeItConnects) {
  const ClosedPort nobody;
  const std::string endpoint = "127.0.0.1:" + std::to_string(nobody.port());
  const auto sending = [&](const std::string& text) {
    return run({"send", "-", "--endpoint", endpoint}, text);
  };
  const QovctlRun bad = sending("{\"records\":[{\"cmd\":1,\"cells\":[{\"tag\":4096}]}]}");
  EXPECT_EQ(bad.status, 6);
  EXPECT_EQ(bad.err, "qovctl: bad data: records[0].cells[0].tag: 4096 is not within 0 to 4095\n");
  EXPECT_EQ(sending("{").status, 6);
  EXPECT_EQ(sending("{\"kind\":\"v3\",\"messages\":[]}").status, 6);
  EXPECT_EQ(sending("{\"kind\":\"om\",\"messages\":[{\"records\":[]}]}").status, 6);
  EXPECT_EQ(sending("{\"records\":[]}").status, 3);
}

TEST_F(QovctlEndpoint, EndsWithThreeWhenNobodyListens) {
  const ClosedPort nobody;
  const std::string endpoint = "127.0.0.1:" + std::to_string(nobody.port());
  for (const std::vector<std::string>& command :
       std::vector<std::vector<std::string>>{{"get", "counts"},
                                             {"walk", "--table", "1"},
                                             {"walk", "--json", "--table", "1"},
                                             {"send", "--command", "1"}}) {
    std::vector<std::string> arguments = command;
    arguments.insert(arguments.end(), {"--endpoint", endpoint});
    const QovctlRun failed = run(arguments);
    EXPECT_EQ(failed.status, 3);
    EXPECT_EQ(failed.out, "");
    EXPECT_EQ(failed.err, "qovctl: no connection to " + endpoint + ": Connection refused\n");
  }
}

TEST_F(QovctlEndpoint, TriesAllAddressesOfAHost) {
  plays({[](PeerConnection& link) { link.answer(recordBytes(kCounts)); }});
  knowsTwo();
  // Nobody listens at the first one.
  const QovctlRun got =
      run({"get", "counts", "--endpoint", "two.test:" + std::to_string(peer().port())});
  EXPECT_EQ(got.status, 0) << got.err;
  EXPECT_EQ(peer().connections(), 1);
}

TEST_F(QovctlEndpoint, SaysOfEachAddressOfAHostWhyThereIsNoConnection) {
  const ClosedPort nobody;
  const std::string port = std::to_string(nobody.port());
  knowsTwo();
  const QovctlRun failed = run({"get", "counts", "--endpoint", "two.test:" + port});
  EXPECT_EQ(failed.status, 3);
  // A machine without IPv6 refuses ::1 with another reason.
  EXPECT_THAT(failed.err,
              StartsWith("qovctl: no connection to two.test:" + port + ": [::1]:" + port + ": "));
  EXPECT_THAT(failed.err, EndsWith("; 127.0.0.1:" + port + ": Connection refused\n"));
}

TEST_F(QovctlEndpoint, EndsWithThreeWhenNobodyAnswersAConnectionInTime) {
  const QuietPort quiet;
  const std::string endpoint = "127.0.0.1:" + std::to_string(quiet.port());
  const QovctlRun failed = run({"get", "counts", "--timeout", "0.1", "--endpoint", endpoint});
  EXPECT_EQ(failed.status, 3);
  EXPECT_EQ(failed.err, "qovctl: no connection to " + endpoint + ": Connection timed out\n");
}

TEST_F(QovctlEndpoint, EndsWithThreeWhenTheConnectionIsLostTwice) {
  playsTwice([](PeerConnection& link) { link.request(); });
  const QovctlRun failed = ask({"get", "counts"});
  EXPECT_EQ(failed.status, 3);
  EXPECT_EQ(failed.err,
            "qovctl: note: a request was sent twice, since the first exchange failed\n"
            "qovctl: the connection to " +
                peer().address() + " was lost before the reply was there\n");
  EXPECT_EQ(peer().requests().size(), 2U);
}

TEST_F(QovctlEndpoint, SaysThatARequestWasSentTwiceWhenTheSecondIsAnswered) {
  plays({[](PeerConnection& link) { link.request(); },
         [](PeerConnection& link) {
           link.answer(row("lo", 1));
           link.answer(endOfWalk());
         }});
  const QovctlRun walked = walk();
  EXPECT_EQ(walked.status, 0);
  EXPECT_THAT(walked.out, HasSubstr("lo"));
  EXPECT_EQ(walked.err,
            "qovctl: note: a request was sent twice, since the first exchange failed\n");
}

TEST_F(QovctlEndpoint, SaysNothingOfARequestThatCouldNotBeSentAgain) {
  // Nobody listens once this connection is there.
  plays({[](PeerConnection& link) { link.request(); }});
  const QovctlRun failed = ask({"get", "counts"});
  EXPECT_EQ(failed.status, 3);
  EXPECT_EQ(failed.err, "qovctl: no connection to " + peer().address() + ": Connection refused\n");
  EXPECT_EQ(peer().requests().size(), 1U);
}

TEST_F(QovctlEndpoint, EndsWithFourWhenNoReplyComesInTime) {
  playsTwice([](PeerConnection& link) { link.ignoreAll(); });
  const QovctlRun failed = ask({"get", "counts", "--timeout", "0.1"});
  EXPECT_EQ(failed.status, 4);
  EXPECT_THAT(failed.err, EndsWith("qovctl: no reply from " + peer().address() +
                                   " within 0.1 s; --timeout gives it longer\n"));
}

TEST_F(QovctlEndpoint, EndsWithFourWhenOnlyAPartOfTheReplyComesInTime) {
  playsTwice([](PeerConnection& link) {
    Message reply = answerTo(link.request(), recordBytes(1, 0));
    reply.pop_back();
    link.send(reply);
    link.ignoreAll();
  });
  EXPECT_EQ(ask({"get", "counts", "--timeout", "0.1"}).status, 4);
}

TEST_F(QovctlEndpoint, EndsWithFiveAndTheResultWhenTheEndpointRefuses) {
  plays({[](PeerConnection& link) { link.answer({}, 3); }});
  const QovctlRun refused = ask({"get", "--table", "9", "5"});
  EXPECT_EQ(refused.status, 5);
  EXPECT_EQ(refused.out, "");
  EXPECT_EQ(refused.err, "qovctl: the endpoint refused the request: RET 3 (no such row)\n");
}

TEST_F(QovctlEndpoint, TellsResultsFromTheLinksOwn) {
  // As the link says that it could not encode, and that there was no reply.
  for (const std::uint32_t result : {16797697U, 16797698U, 4294967295U}) {
    plays({[=](PeerConnection& link) { link.answer({}, result); }});
    const QovctlRun refused = ask({"get", "counts"});
    EXPECT_EQ(refused.status, 5);
    EXPECT_THAT(refused.err, EndsWith("RET " + std::to_string(result) + "\n"));
  }
}

TEST_F(QovctlEndpoint, SaysThatTheLinkRepeatsWhatIsAnsweredWithItsOwnResult) {
  plays({[](PeerConnection& link) {
    link.answer({}, 16797704);
    link.answer({}, 16797704);
  }});
  const QovctlRun refused = ask({"get", "counts"});
  EXPECT_EQ(refused.status, 5);
  EXPECT_THAT(refused.err, StartsWith("qovctl: note: a request was sent twice"));
  EXPECT_THAT(refused.err, EndsWith("RET 16797704\n"));
}

TEST_F(QovctlEndpoint, PrintsTheReplyToWhatItSendsWhateverItsResult) {
  plays({[](PeerConnection& link) { link.answer(recordBytes(8), 4); }});
  const QovctlRun refused = ask({"send", "--command", "1"});
  EXPECT_EQ(refused.status, 5);
  EXPECT_THAT(refused.out, StartsWith("{\nRET=4\n"));
  EXPECT_THAT(refused.out, HasSubstr("cmd = 8"));
  EXPECT_THAT(refused.err, EndsWith("RET 4 (bad request)\n"));
}

TEST_F(QovctlEndpoint, SaysThatTheReplyToWhatItSendsCannotBeDecodedInsteadOfPrintingIt) {
  plays({[](PeerConnection& link) { link.answer(Bytes().record(1, 4).cell(1, 10, 0), 4); }});
  const QovctlRun refused = ask({"send", "--command", "1"});
  EXPECT_EQ(refused.status, 5);
  EXPECT_EQ(refused.out, "");
  EXPECT_EQ(refused.err,
            "qovctl: the endpoint refused the request: RET 4 (bad request); its reply cannot be "
            "decoded: bad data at byte 38: cell-type: 10 is none of 0 to 9\n");
}

TEST_F(QovctlEndpoint, EndsWithSixWhenTheReplyIsToAnotherRequest) {
  plays({[](PeerConnection& link) {
    Message reply = answerTo(link.request());
    reply[22] = 99;
    link.send(reply);
  }});
  const QovctlRun failed = ask({"get", "counts"});
  EXPECT_EQ(failed.status, 6);
  EXPECT_EQ(failed.err, "qovctl: bad reply: its serial number is 99, the request's is 1\n");
}

TEST_F(QovctlEndpoint, EndsWithSixAndTheReasonWhenTheReplyCannotBeDecoded) {
  plays({[](PeerConnection& link) { link.answer(Bytes().record(1, 4).cell(1, 10, 0)); }});
  const QovctlRun failed = ask({"get", "counts"});
  EXPECT_EQ(failed.status, 6);
  EXPECT_EQ(failed.err,
            "qovctl: bad reply: bad data at byte 38: cell-type: 10 is none of 0 to 9\n");
}

TEST_F(QovctlEndpoint, EndsWithSixWhenTheReplyIsTooLong) {
  playsTwice([](PeerConnection& link) {
    Message reply = answerTo(link.request());
    reply[26] = 0x20;  // LEN is 2097152
    link.send(reply);
    link.ignoreAll();
  });
  const QovctlRun failed = ask({"get", "counts"});
  EXPECT_EQ(failed.status, 6);
  EXPECT_THAT(failed.err, EndsWith("bad reply: LEN is 2097152, a reply has at most 2097124\n"));
}

TEST_F(QovctlEndpoint, SaysThatItWasAnsweredInAnotherProtocol) {
  playsTwice([](PeerConnection& link) {
    const std::string banner = "SSH-2.0-whatever there is on the other side\r\n";
    link.send({banner.begin(), banner.end()});
    link.ignoreAll();
  });
  const QovctlRun failed = ask({"get", "counts"});
  EXPECT_EQ(failed.status, 6);
  EXPECT_THAT(failed.err,
              EndsWith("bad reply: bad data at byte 0: magic: 0x2d485353 is not 0x55555555\n"));
}

TEST_F(QovctlEndpoint, EndsWithSixWhenARowIsNotOneRecord) {
  plays({[](PeerConnection& link) {
    link.answer(row("lo", 1));
    link.answer(Bytes().record(1, 0).record(2, 0));
  }});
  const QovctlRun failed = walk();
  EXPECT_EQ(failed.status, 6);
  EXPECT_EQ(failed.err, "qovctl: bad reply: it has 2 records, not one\n");
  // What was read before is worth printing.
  EXPECT_THAT(failed.out, HasSubstr("lo"));
}

TEST_F(QovctlEndpoint, EndsWithSixWhenWhatItGetsIsNotOneRecord) {
  for (const Bytes& records : {Bytes(), Bytes().record(kCounts, 0).record(kCounts, 0)}) {
    for (const std::vector<std::string>& command :
         std::vector<std::vector<std::string>>{{"get", "counts"}, {"get", "--table", "1", "1"}}) {
      plays({[records](PeerConnection& link) { link.answer(records); }});
      const QovctlRun failed = ask(command);
      EXPECT_EQ(failed.status, 6);
      EXPECT_EQ(failed.out, "");
      EXPECT_THAT(failed.err, StartsWith("qovctl: bad reply: it has "));
    }
  }
}

TEST_F(QovctlEndpoint, EndsWithSixWhenAStatusIsNoNumber) {
  plays({[](PeerConnection& link) {
    link.answer(Bytes().record(kGetNext + 1, 5).cell(4095, kString, 1).u8(0));
  }});
  const QovctlRun failed = walk();
  EXPECT_EQ(failed.status, 6);
  EXPECT_EQ(failed.err, "qovctl: bad reply: its status (tag 4095) is no number\n");
}

TEST_F(QovctlEndpoint, EndsWithFiveWhenAWalkEndsWithAStatus) {
  plays({[](PeerConnection& link) {
    link.answer(row("lo", 1));
    link.answer(row("odd", 2, 7));
  }});
  const QovctlRun failed = walk();
  EXPECT_EQ(failed.status, 5);
  EXPECT_EQ(failed.err, "qovctl: the endpoint ended the walk with status 7\n");
  EXPECT_THAT(failed.out, HasSubstr("odd"));
}

TEST_F(QovctlEndpoint, EndsWithSevenWhenAWalkDoesNotEnd) {
  plays({[](PeerConnection& link) { link.answerAll(row("lo", 1)); }});
  const QovctlRun failed = walk();
  EXPECT_EQ(failed.status, 7);
  EXPECT_EQ(
      failed.err,
      "qovctl: the walk stopped after 10000 rows, the table may have more; --after 1 goes on\n");
  EXPECT_EQ(std::count(failed.out.begin(), failed.out.end(), '\n'), 10001);
}

TEST_F(QovctlEndpoint, SaysWhenAWalkCannotGoOn) {
  plays({[](PeerConnection& link) {
    link.answerAll(Bytes().record(kGetNext + 1, 5).cell(1, kUint, 1).u8(1));
  }});
  const QovctlRun failed = walk();
  EXPECT_EQ(failed.status, 7);
  EXPECT_THAT(failed.err, EndsWith("; the last row has no key to go on behind\n"));
}

TEST_F(QovctlEndpoint, LogsOnlyWhenAskedAndLeavesNoFile) {
  plays({[](PeerConnection& link) { link.answer(recordBytes(kCounts)); }});
  EXPECT_EQ(ask({"get", "counts"}).err, "");
  plays({[](PeerConnection& link) { link.answer(recordBytes(kCounts)); }});
  const QovctlRun verbose = ask({"get", "counts", "--verbose"});
  EXPECT_EQ(verbose.status, 0);
  EXPECT_THAT(verbose.err, HasSubstr("Successed to connect socket server, server ip is " +
                                     peer().address() + "\n"));
  EXPECT_THAT(verbose.err, HasSubstr("received:\n{\nRET=0\n"));
  EXPECT_THAT(verbose.err, Not(HasSubstr("enter ")));
  EXPECT_TRUE(std::filesystem::is_empty(workingDirectory()));
}

TEST_F(QovctlEndpoint, KeepsTheConnectionApartFromAStandardOutputThatIsClosed) {
  ssize_t more = -1;
  plays({[&](PeerConnection& link) {
    link.answer(row("lo", 1));
    char byte;
    more = ::recv(link.socket(), &byte, sizeof byte, 0);
  }});
  hasNoOutput();
  const QovctlRun walked = walk();
  EXPECT_EQ(walked.status, 1);
  EXPECT_EQ(walked.err, "qovctl: cannot write: Bad file descriptor\n");
  peer().join();
  EXPECT_EQ(more, 0);
}

TEST_F(QovctlEndpoint, EndsAtOnceWhenInterrupted) {
  Latch asked;
  playsTwice([&](PeerConnection& link) {
    link.request();
    asked.count();
    link.ignoreAll();
  });
  start(toPeer({"get", "counts"}));
  ASSERT_TRUE(asked.waitFor());
  send(SIGINT);
  EXPECT_EQ(finish().signal, SIGINT);
}

}  // namespace
}  // namespace qov::test
