#include "tests/tools/qovctl_endpoint_fixture.h"

using ::testing::ElementsAre;

namespace qov::test {
namespace {

/// Options and variables that say where requests go, how often, and who asks.
class QovctlOptions : public QovctlEndpoint {
 protected:
  void playsAnswer() {
    plays({[](PeerConnection& link) { link.answer(recordBytes(kCounts)); }});
  }
  /// Loses so many connections, once a request is there, and answers on the next one.
  void losesBeforeAnswer(int count) {
    std::vector<ScriptedPeer::Script> scripts(static_cast<std::size_t>(count),
                                              [](PeerConnection& link) { link.request(); });
    scripts.emplace_back([](PeerConnection& link) { link.answer(row("lo", 1)); });
    plays(scripts);
  }
  /// SSK, NID, reserved and BID of the first request, as bytes.
  std::vector<unsigned char> identity() {
    const Message request = peer().requests().at(0);
    return {request.begin() + 12, request.begin() + 22};
  }
};

TEST_F(QovctlOptions, SayWhoAsks) {
  const std::vector<std::vector<std::string>> commands{
      {"get", "counts"}, {"walk", "--table", "1"}, {"send", "--command", "1"}};
  for (std::vector<std::string> command : commands) {
    playsAnswer();
    ask(command);
    EXPECT_THAT(identity(),
                ElementsAre(0xFF, 0xFF, 0xFF, 0xFF, 0xFD, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF));
    playsAnswer();
    command.insert(command.end(), {"--ssk", "0x01020304", "--nid=5", "--bid=0x607"});
    ask(command);
    EXPECT_THAT(identity(), ElementsAre(4, 3, 2, 1, 5, 0, 0xFF, 0xFF, 7, 6));
  }
}

TEST_F(QovctlOptions, LeaveTheHeadOfAFileAloneButForWhatTheySay) {
  playsAnswer();
  ask({"send", "-", "--nid", "9"},
      R"({"head":{"ssk":1,"nid":2,"bid":3},"records":[{"cmd":1,"cells":[]}]})");
  EXPECT_THAT(identity(), ElementsAre(1, 0, 0, 0, 9, 0, 0xFF, 0xFF, 3, 0));
}

TEST_F(QovctlOptions, SendNothingAgainWithoutRetries) {
  losesBeforeAnswer(1);
  const QovctlRun failed = ask({"get", "counts", "--retries", "0"});
  EXPECT_EQ(failed.status, 3);
  EXPECT_EQ(failed.err, "qovctl: the connection to " + peer().address() +
                            " was lost before the reply was there\n");
  EXPECT_EQ(peer().requests().size(), 1U);
}

TEST_F(QovctlOptions, SendNothingOfAWalkAgainWithoutRetries) {
  plays({[](PeerConnection& link) {
           link.answer(row("lo", 1));
           link.request();
         },
         [](PeerConnection& link) { link.ignoreAll(); }});
  const QovctlRun failed = walk({"--retries=0"});
  EXPECT_EQ(failed.status, 3);
  EXPECT_THAT(failed.out, HasSubstr("lo"));
  EXPECT_EQ(peer().requests().size(), 2U);
}

TEST_F(QovctlOptions, WaitOnceForAReplyWithoutRetries) {
  playsTwice([](PeerConnection& link) { link.ignoreAll(); });
  EXPECT_EQ(ask({"get", "counts", "--timeout", "0.1", "--retries", "0"}).status, 4);
  EXPECT_EQ(peer().requests().size(), 0U);
}

TEST_F(QovctlOptions, SendAsOftenAsTheyAreTold) {
  for (const int retries : {1, 2, 5}) {
    losesBeforeAnswer(retries);
    const QovctlRun got = ask({"get", "--table=1", "1", "--retries", std::to_string(retries)});
    EXPECT_EQ(got.status, 0) << got.err;
    EXPECT_THAT(got.out, HasSubstr("lo"));
    ASSERT_EQ(peer().requests().size(), static_cast<std::size_t>(retries) + 1);
    EXPECT_EQ(peer().requests().front(), peer().requests().back());
    EXPECT_THAT(got.err,
                StartsWith(retries == 1 ? "qovctl: note: a request was sent twice, since"
                                        : "qovctl: note: a request was sent " +
                                              std::to_string(retries + 1) + " times, since"));
    losesBeforeAnswer(retries + 1);
    EXPECT_EQ(ask({"get", "--table=1", "1", "--retries", std::to_string(retries)}).status, 3);
    EXPECT_EQ(peer().requests().size(), static_cast<std::size_t>(retries) + 1);
  }
}

TEST_F(QovctlOptions, CountTheRetriesOfEachRequestOfAWalk) {
  const auto lose = [](PeerConnection& link) {
    link.answer(row("lo", 1));
    link.request();
  };
  plays({lose, [](PeerConnection& link) { link.request(); }, lose,
         [](PeerConnection& link) { link.request(); },
         [](PeerConnection& link) { link.answer(endOfWalk()); }});
  const QovctlRun walked = walk({"--retries", "2"});
  EXPECT_EQ(walked.status, 0) << walked.err;
  EXPECT_THAT(walked.err, HasSubstr("sent 3 times"));
}

TEST_F(QovctlOptions, TryOnWhileNobodyListens) {
  // Nobody listens once this connection is there.
  plays({[](PeerConnection& link) { link.request(); }});
  const QovctlRun failed = ask({"get", "counts", "--retries", "4"});
  EXPECT_EQ(failed.status, 3);
  EXPECT_EQ(failed.err, "qovctl: no connection to " + peer().address() + ": Connection refused\n");
}

TEST_F(QovctlOptions, TakeTheEndpointOfTheEnvironment) {
  const ClosedPort nobody;
  playsAnswer();
  sets({"QOVCTL_ENDPOINT=" + peer().address()});
  const QovctlRun got = run({"get", "counts"});
  EXPECT_EQ(got.status, 0) << got.err;
  EXPECT_THAT(run({"get", "--help"}).out, HasSubstr(peer().address()));
  playsAnswer();
  sets({"QOVCTL_ENDPOINT=127.0.0.1:" + std::to_string(nobody.port())});
  EXPECT_EQ(ask({"get", "counts"}).status, 0);
  EXPECT_EQ(run({"get", "counts"}).status, 3);
}

TEST_F(QovctlOptions, SayWhichVariableIsWrong) {
  sets({"QOVCTL_ENDPOINT=host:0"});
  const QovctlRun refused = run({"get", "counts"});
  EXPECT_EQ(refused.status, 2);
  EXPECT_EQ(refused.err,
            "qovctl: QOVCTL_ENDPOINT: \"host:0\" is not host:port, with a port of 1 to 65535\n");
  playsAnswer();
  EXPECT_EQ(ask({"get", "counts"}).status, 0);
}

TEST_F(QovctlOptions, TakeAnEmptyVariableForNone) {
  sets({"QOVCTL_ENDPOINT=", "QOVCTL_TABLES=", "XDG_CONFIG_HOME=", "HOME="});
  EXPECT_THAT(run({"get", "--help"}).out, HasSubstr("--endpoint TEXT=127.0.0.1:19001\n"));
  EXPECT_THAT(run({"tables"}).out, HasSubstr("interfaces"));
}

}  // namespace
}  // namespace qov::test
