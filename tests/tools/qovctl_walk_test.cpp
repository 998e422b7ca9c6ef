#include "modules/common/json_object.h"
#include "tests/support/latch.h"
#include "tests/tools/qovctl_endpoint_fixture.h"

using ::testing::Not;

namespace qov::test {
namespace {

/// What is printed of a table.
class QovctlWalk : public QovctlEndpoint {};

TEST_F(QovctlWalk, WalksATableAndPrintsItsRows) {
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

TEST_F(QovctlWalk, WalksBehindAKey) {
  plays({[](PeerConnection& link) { link.answer(endOfWalk()); }});
  const QovctlRun walked = ask({"walk", "--table", "0x1001", "--after", "300"});
  EXPECT_EQ(walked.status, 0);
  EXPECT_EQ(walked.out, "");
  EXPECT_EQ(firstRecords(),
            Bytes().record(kGetNext + 0x1001, 6).cell(4093, kUint, 2).u16(300).data());
}

TEST_F(QovctlWalk, PrintsRowsAsJson) {
  plays({[](PeerConnection& link) {
    link.answer(row("lo", 1));
    link.answer(row("eth0", 2));
    link.answer(endOfWalk());
  }});
  const Json::Value document = common::parseJson(walk({"--json"}).out);
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

TEST_F(QovctlWalk, PrintsATableWithoutRowsAsJson) {
  plays({[](PeerConnection& link) { link.answer(endOfWalk()); }});
  const Json::Value document = common::parseJson(walk({"--json"}).out);
  EXPECT_EQ(document["kind"], "v3");
  EXPECT_EQ(document["messages"], Json::Value(Json::arrayValue));
}

TEST_F(QovctlWalk, EndsTheJsonOfAWalkThatFails) {
  plays({[](PeerConnection& link) {
    link.answer(row("lo", 1));
    link.answer({}, 2);
  }});
  const QovctlRun failed = walk({"--json"});
  EXPECT_EQ(failed.status, 5);
  EXPECT_EQ(common::parseJson(failed.out)["messages"].size(), 1U);
}

TEST_F(QovctlWalk, PrintsTheRepliesOfAWalkAsTheLogsHaveThem) {
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

TEST_F(QovctlWalk, PrintsEachRowAsItComes) {
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

TEST_F(QovctlWalk, DumpsTheBadReplyOfAWalkButNoRefusedOne) {
  plays({[](PeerConnection& link) { link.answer(Bytes().record(1, 0).record(2, 0)); }});
  EXPECT_THAT(walk({"--dump"}).out, HasSubstr("cmd = 2"));
  plays({[](PeerConnection& link) { link.answer(Bytes().record(1, 0), 4); }});
  EXPECT_EQ(walk({"--dump"}).out, "");
}

TEST_F(QovctlWalk, NamesTheColumnsAgainWithOneMore) {
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

TEST_F(QovctlWalk, ShowsValuesSoThatTheyCannotSteerATerminal) {
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

TEST_F(QovctlWalk, ShowsValuesSoThatTheyCannotTurnTheDirectionOfWriting) {
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

TEST_F(QovctlWalk, ShowsEveryCellOfARowWhoseTagsAreNotDistinct) {
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

TEST_F(QovctlWalk, DoesNotPadARowForTheLongValueOfAnother) {
  plays({[](PeerConnection& link) {
    link.answer(row(std::string(1000, 'x'), 1));
    link.answer(row("lo", 2));
    link.answer(endOfWalk());
  }});
  const QovctlRun walked = walkUnnamed();
  EXPECT_THAT(walked.out, HasSubstr(std::string(1000, 'x') + "  1500\n"));
  EXPECT_THAT(walked.out, EndsWith("\n2         lo" + std::string(60, ' ') + "1500\n"));
}

}  // namespace
}  // namespace qov::test
