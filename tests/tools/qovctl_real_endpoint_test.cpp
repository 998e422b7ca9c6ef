#include <unistd.h>

#include "modules/common/json_object.h"
#include "tests/tools/endpoint_client.h"
#include "tests/tools/qovctl_with_endpoint.h"

using ::testing::ContainsRegex;

namespace qov::test {
namespace {

constexpr const char* kTables = R"({"tables":[
  {"name":"things","number":7,"rows":[
    {"key":300,"cells":[{"tag":1,"type":"String","value":"last"}]},
    {"key":2,"cells":[{"tag":1,"type":"String","value":"first"},
                      {"tag":2,"type":"Int","value":-77}]}]},
  {"name":"nothing","number":8,"rows":[]}]})";

class QovctlRealEndpoint : public QovctlWithEndpoint {
 protected:
  void servesThings() { servesTables(kTables); }
};

TEST_F(QovctlRealEndpoint, WalksTablesOfAFile) {
  servesThings();
  const QovctlRun walked = ask({"walk", "--table", "7"});
  EXPECT_EQ(walked.status, 0) << walked.err;
  EXPECT_EQ(walked.out,
            "key       tag 1     tag 2\n"
            "2         first     -77\n"
            "300       last\n");
  EXPECT_EQ(ask({"walk", "--table", "7", "--after", "2"}).out,
            "key       tag 1\n"
            "300       last\n");
  const QovctlRun nothing = ask({"walk", "--table", "8"});
  EXPECT_EQ(nothing.status, 0);
  EXPECT_EQ(nothing.out, "");
}

TEST_F(QovctlRealEndpoint, GetsARowOrSaysWhyNot) {
  servesThings();
  EXPECT_EQ(ask({"get", "--table", "7", "300"}).out, "tag 1  last\nkey    300\n");
  const QovctlRun noRow = ask({"get", "--table", "7", "3"});
  EXPECT_EQ(noRow.status, 5);
  EXPECT_EQ(noRow.err, "qovctl: the endpoint refused the request: RET 3 (no such row)\n");
  EXPECT_THAT(ask({"walk", "--table", "9"}).err, HasSubstr("RET 2 (unknown table)"));
}

TEST_F(QovctlRealEndpoint, StoresRecordsThatAreThereAfterwards) {
  serves();
  EXPECT_EQ(ask({"send", "--command", "store/0x1000", "--cell", "1:String:a", "--command",
                 "store/0x1000", "--cell", "1:String:b"})
                .status,
            0);
  EXPECT_EQ(ask({"walk", "--table", "0x1000"}).out, "key       tag 1\n1         a\n2         b\n");
}

TEST_F(QovctlRealEndpoint, SendsWhatItPrints) {
  servesThings();
  const QovctlRun got = ask({"get", "--json", "--table", "7", "2"});
  const QovctlRun sent = ask({"send", "--json", "-"}, got.out);
  EXPECT_EQ(sent.status, 0) << sent.err;
  EXPECT_EQ(common::parseJson(sent.out)["messages"][0]["records"],
            common::parseJson(got.out)["messages"][0]["records"]);
}

TEST_F(QovctlRealEndpoint, ReadsTheCounts) {
  servesThings();
  ASSERT_EQ(ask({"walk", "--table", "7"}).status, 0);
  ASSERT_EQ(ask({"get", "--table", "7", "3"}).status, 5);
  EXPECT_EQ(ask({"get", "counts"}).out,
            "connections  3\n"
            "requests     5\n"
            "replies      4\n"
            "rows         2\n"
            "ends         1\n"
            "stored       0\n"
            "refusals     1\n");
}

TEST_F(QovctlRealEndpoint, WalksThisMachine) {
  serves();
  const QovctlRun interfaces = ask({"walk", "--table", "interfaces"});
  EXPECT_THAT(interfaces.out, ContainsRegex("^key +name +up "));
  EXPECT_THAT(interfaces.out, ContainsRegex("\n[0-9]+ +lo +1 "));
  EXPECT_THAT(ask({"walk", "--table", "mounts"}).out,
              ContainsRegex("^key +point +device +type +flags\n[0-9]+ +/"));
  EXPECT_THAT(ask({"walk", "--table", "processes"}).out,
              HasSubstr("\n" + std::to_string(::getpid()) + " "));
}

TEST_F(QovctlRealEndpoint, AsksAnEndpointThatListensOnIpv6) {
  if (!hasIpv6Loopback()) {
    GTEST_SKIP() << "this machine has no address ::1";
  }
  endpoint_.expectHost("[::1]");
  serves({"--address", "::1"});
  const QovctlRun got =
      run({"get", "counts", "--endpoint", "[::1]:" + std::to_string(endpoint_.port())});
  EXPECT_EQ(got.status, 0) << got.err;
}

TEST_F(QovctlRealEndpoint, EndsWithThreeOnceTheEndpointIsGone) {
  serves();
  ASSERT_EQ(ask({"get", "counts"}).status, 0);
  ASSERT_TRUE(endpoint_.end(SIGTERM).ended);
  EXPECT_EQ(ask({"get", "counts"}).status, 3);
}

}  // namespace
}  // namespace qov::test
