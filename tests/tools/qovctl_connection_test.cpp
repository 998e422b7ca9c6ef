#include <signal.h>
#include <sys/socket.h>

#include "tests/support/latch.h"
#include "tests/tools/qovctl_endpoint_fixture.h"

namespace qov::test {
namespace {

/// What keeps a request from its reply.
class QovctlConnection : public QovctlEndpoint {};

TEST_F(QovctlConnection, EndsWithThreeWhenNobodyListens) {
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

TEST_F(QovctlConnection, TriesAllAddressesOfAHost) {
  plays({[](PeerConnection& link) { link.answer(recordBytes(kCounts)); }});
  knowsTwo();
  // Nobody listens at the first one.
  const QovctlRun got =
      run({"get", "counts", "--endpoint", "two.test:" + std::to_string(peer().port())});
  EXPECT_EQ(got.status, 0) << got.err;
  EXPECT_EQ(peer().connections(), 1);
}

TEST_F(QovctlConnection, SaysOfEachAddressOfAHostWhyThereIsNoConnection) {
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

TEST_F(QovctlConnection, EndsWithThreeWhenNobodyAnswersAConnectionInTime) {
  const QuietPort quiet;
  const std::string endpoint = "127.0.0.1:" + std::to_string(quiet.port());
  const QovctlRun failed = run({"get", "counts", "--timeout", "0.1", "--endpoint", endpoint});
  EXPECT_EQ(failed.status, 3);
  EXPECT_EQ(failed.err, "qovctl: no connection to " + endpoint + ": Connection timed out\n");
}

TEST_F(QovctlConnection, EndsWithThreeWhenTheConnectionIsLostTwice) {
  playsTwice([](PeerConnection& link) { link.request(); });
  const QovctlRun failed = ask({"get", "counts"});
  EXPECT_EQ(failed.status, 3);
  EXPECT_EQ(failed.err,
            "qovctl: note: a request was sent twice, since the first exchange failed\n"
            "qovctl: the connection to " +
                peer().address() + " was lost before the reply was there\n");
  EXPECT_EQ(peer().requests().size(), 2U);
}

TEST_F(QovctlConnection, SaysThatARequestWasSentTwiceWhenTheSecondIsAnswered) {
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

TEST_F(QovctlConnection, SaysNothingOfARequestThatCouldNotBeSentAgain) {
  // Nobody listens once this connection is there.
  plays({[](PeerConnection& link) { link.request(); }});
  const QovctlRun failed = ask({"get", "counts"});
  EXPECT_EQ(failed.status, 3);
  EXPECT_EQ(failed.err, "qovctl: no connection to " + peer().address() + ": Connection refused\n");
  EXPECT_EQ(peer().requests().size(), 1U);
}

TEST_F(QovctlConnection, EndsWithFourWhenNoReplyComesInTime) {
  playsTwice([](PeerConnection& link) { link.ignoreAll(); });
  const QovctlRun failed = ask({"get", "counts", "--timeout", "0.1"});
  EXPECT_EQ(failed.status, 4);
  EXPECT_THAT(failed.err, EndsWith("qovctl: no reply from " + peer().address() +
                                   " within 0.1 s; --timeout gives it longer\n"));
}

TEST_F(QovctlConnection, EndsWithFourWhenOnlyAPartOfTheReplyComesInTime) {
  playsTwice([](PeerConnection& link) {
    Message reply = answerTo(link.request(), recordBytes(1, 0));
    reply.pop_back();
    link.send(reply);
    link.ignoreAll();
  });
  EXPECT_EQ(ask({"get", "counts", "--timeout", "0.1"}).status, 4);
}

TEST_F(QovctlConnection, KeepsTheConnectionApartFromAStandardOutputThatIsClosed) {
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

TEST_F(QovctlConnection, EndsAtOnceWhenInterrupted) {
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
