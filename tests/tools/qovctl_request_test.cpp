#include <filesystem>

#include "modules/common/json_object.h"
#include "tests/tools/qovctl_endpoint_fixture.h"

using ::testing::Not;

namespace qov::test {
namespace {

/// What is sent, and what is printed of its reply.
class QovctlRequest : public QovctlEndpoint {};

TEST_F(QovctlRequest, GetsOneRow) {
  plays({[](PeerConnection& link) { link.answer(row("lo", 1)); }});
  const QovctlRun got = ask({"get", "--table", "interfaces", "1"});
  EXPECT_EQ(got.status, 0);
  EXPECT_EQ(got.out, "name  lo\nmtu   1500\nkey   1\n");
  EXPECT_EQ(firstRecords(), Bytes().record(kGet + 1, 5).cell(4093, kUint, 1).u8(1).data());
}

TEST_F(QovctlRequest, GetsTheCounts) {
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

TEST_F(QovctlRequest, SendsAMessageGivenInJson) {
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
      const QovctlRun sent = ask({"send", "--dump", from}, text);
      EXPECT_EQ(sent.status, 0) << sent.err;
      EXPECT_EQ(firstRecords(), records.data());
      EXPECT_EQ(peer().requests()[0][12], 5);
      EXPECT_THAT(sent.out, StartsWith("{\nRET=0\n"));
      EXPECT_THAT(sent.out, HasSubstr("SER=1\n"));
      EXPECT_THAT(sent.out, HasSubstr("    cmd = 9, length = 5\n"));
    }
  }
}

TEST_F(QovctlRequest, SendsAMessageGivenByOptions) {
  plays({[](PeerConnection& link) { link.answer(); }});
  const QovctlRun sent =
      ask({"send", "--json", "--command", "store/0x1000", "--cell", "1:String:a:b, c", "--cell",
           "2:Int:-2", "--cell", "5:Uint:0x0100", "--command", "7", "--command=get-next/mounts",
           "--cell=3:Octet:0aFF", "--cell", "4:Json:{\"a\":[]}"});
  EXPECT_EQ(sent.status, 0) << sent.err;
  EXPECT_EQ(common::parseJson(sent.out)["messages"][0]["head"]["ser"], 1);
  Bytes records;
  records.record(kStore + 0x1000, 22).cell(1, kString, 7).text("a:b, c").u8(0);
  records.cell(2, 4, 1).u8(0xFE).cell(5, kUint, 2).u16(0x100).record(7, 0);
  records.record(kGetNext + 2, 19).cell(3, 1, 2).u8(0x0A).u8(0xFF);
  records.cell(4, 8, 9).text("{\"a\":[]}").u8(0);
  EXPECT_EQ(firstRecords(), records.data());
}

TEST_F(QovctlRequest, RefusesAMessageThatIsNoneBeforeItConnects) {
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

TEST_F(QovctlRequest, PrintsTheReplyToWhatItSendsWhateverItsResult) {
  plays({[](PeerConnection& link) { link.answer(recordBytes(8), 4); }});
  const QovctlRun refused = ask({"send", "--command", "1"});
  EXPECT_EQ(refused.status, 5);
  EXPECT_EQ(refused.out, "RET 4 (bad request)\n\ncommand  8\n");
  EXPECT_THAT(refused.err, EndsWith("RET 4 (bad request)\n"));
}

TEST_F(QovctlRequest, SaysThatTheReplyToWhatItSendsCannotBeDecodedInsteadOfPrintingIt) {
  plays({[](PeerConnection& link) { link.answer(Bytes().record(1, 4).cell(1, 10, 0), 4); }});
  const QovctlRun refused = ask({"send", "--command", "1"});
  EXPECT_EQ(refused.status, 5);
  EXPECT_EQ(refused.out, "");
  EXPECT_EQ(refused.err,
            "qovctl: the endpoint refused the request: RET 4 (bad request); its reply cannot be "
            "decoded: bad data at byte 38: cell-type: 10 is none of 0 to 9\n");
}

TEST_F(QovctlRequest, LogsOnlyWhenAskedAndLeavesNoFile) {
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

}  // namespace
}  // namespace qov::test
