#include <algorithm>

#include "tests/tools/qovctl_endpoint_fixture.h"

namespace qov::test {
namespace {

/// Replies that end the command with a failure.
class QovctlReply : public QovctlEndpoint {};

TEST_F(QovctlReply, EndsWithFiveAndTheResultWhenTheEndpointRefuses) {
  plays({[](PeerConnection& link) { link.answer({}, 3); }});
  const QovctlRun refused = ask({"get", "--table", "9", "5"});
  EXPECT_EQ(refused.status, 5);
  EXPECT_EQ(refused.out, "");
  EXPECT_EQ(refused.err, "qovctl: the endpoint refused the request: RET 3 (no such row)\n");
}

TEST_F(QovctlReply, TellsResultsFromTheLinksOwn) {
  // As the link says that it could not encode, and that there was no reply.
  for (const std::uint32_t result : {16797697U, 16797698U, 4294967295U}) {
    plays({[=](PeerConnection& link) { link.answer({}, result); }});
    const QovctlRun refused = ask({"get", "counts"});
    EXPECT_EQ(refused.status, 5);
    EXPECT_THAT(refused.err, EndsWith("RET " + std::to_string(result) + "\n"));
  }
}

TEST_F(QovctlReply, SaysThatTheLinkRepeatsWhatIsAnsweredWithItsOwnResult) {
  plays({[](PeerConnection& link) {
    link.answer({}, 16797704);
    link.answer({}, 16797704);
  }});
  const QovctlRun refused = ask({"get", "counts"});
  EXPECT_EQ(refused.status, 5);
  EXPECT_THAT(refused.err, StartsWith("qovctl: note: a request was sent twice"));
  EXPECT_THAT(refused.err, EndsWith("RET 16797704\n"));
}

TEST_F(QovctlReply, EndsWithSixWhenTheReplyIsToAnotherRequest) {
  plays({[](PeerConnection& link) {
    Message reply = answerTo(link.request());
    reply[22] = 99;
    link.send(reply);
  }});
  const QovctlRun failed = ask({"get", "counts"});
  EXPECT_EQ(failed.status, 6);
  EXPECT_EQ(failed.err, "qovctl: bad reply: its serial number is 99, the request's is 1\n");
}

TEST_F(QovctlReply, EndsWithSixAndTheReasonWhenTheReplyCannotBeDecoded) {
  plays({[](PeerConnection& link) { link.answer(Bytes().record(1, 4).cell(1, 10, 0)); }});
  const QovctlRun failed = ask({"get", "counts"});
  EXPECT_EQ(failed.status, 6);
  EXPECT_EQ(failed.err,
            "qovctl: bad reply: bad data at byte 38: cell-type: 10 is none of 0 to 9\n");
}

TEST_F(QovctlReply, EndsWithSixWhenTheReplyIsTooLong) {
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

TEST_F(QovctlReply, SaysThatItWasAnsweredInAnotherProtocol) {
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

TEST_F(QovctlReply, EndsWithSixWhenARowIsNotOneRecord) {
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

TEST_F(QovctlReply, EndsWithSixWhenWhatItGetsIsNotOneRecord) {
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

TEST_F(QovctlReply, EndsWithSixWhenAStatusIsNoNumber) {
  plays({[](PeerConnection& link) {
    link.answer(Bytes().record(kGetNext + 1, 5).cell(4095, kString, 1).u8(0));
  }});
  const QovctlRun failed = walk();
  EXPECT_EQ(failed.status, 6);
  EXPECT_EQ(failed.err, "qovctl: bad reply: its status (tag 4095) is no number\n");
}

TEST_F(QovctlReply, EndsWithFiveWhenAWalkEndsWithAStatus) {
  plays({[](PeerConnection& link) {
    link.answer(row("lo", 1));
    link.answer(row("odd", 2, 7));
  }});
  const QovctlRun failed = walk();
  EXPECT_EQ(failed.status, 5);
  EXPECT_EQ(failed.err, "qovctl: the endpoint ended the walk with status 7\n");
  EXPECT_THAT(failed.out, HasSubstr("odd"));
}

TEST_F(QovctlReply, EndsWithSevenWhenAWalkDoesNotEnd) {
  plays({[](PeerConnection& link) { link.answerAll(row("lo", 1)); }});
  const QovctlRun failed = walk();
  EXPECT_EQ(failed.status, 7);
  EXPECT_EQ(
      failed.err,
      "qovctl: the walk stopped after 10000 rows, the table may have more; --after 1 goes on\n");
  EXPECT_EQ(std::count(failed.out.begin(), failed.out.end(), '\n'), 10001);
}

TEST_F(QovctlReply, SaysWhenAWalkCannotGoOn) {
  plays({[](PeerConnection& link) {
    link.answerAll(Bytes().record(kGetNext + 1, 5).cell(1, kUint, 1).u8(1));
  }});
  const QovctlRun failed = walk();
  EXPECT_EQ(failed.status, 7);
  EXPECT_THAT(failed.err, EndsWith("; the last row has no key to go on behind\n"));
}

}  // namespace
}  // namespace qov::test
