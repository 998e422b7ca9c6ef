#include "modules/common/json_object.h"
#include "tests/tools/qovctl_with_endpoint.h"

namespace qov::test {
namespace {

constexpr const char* kServed = R"({"tables":[
  {"name":"things","number":7,"rows":[
    {"key":2,"cells":[{"tag":1,"type":"String","value":"first"},
                      {"tag":2,"type":"Int","value":-77}]},
    {"key":300,"cells":[{"tag":1,"type":"String","value":"last"}]}]},
  {"name":"kept","number":4096,"rows":[]}]})";

constexpr const char* kNamed = R"({"tables":[
  {"number":7,"name":"things","columns":[
    {"tag":1,"name":"label","type":"String"},
    {"tag":2,"name":"balance","type":"Int"}]},
  {"number":4096,"name":"kept","columns":[
    {"tag":1,"name":"label","type":"String"},
    {"tag":2,"name":"open","type":"Bool"},
    {"tag":3,"name":"mac","type":"Octet"},
    {"tag":4,"name":"depth","type":"Int"},
    {"tag":5,"name":"more","type":"Json"}]}]})";

/// Rows of tables that a file names: which of them are got, what of them is shown, and how they are
/// written.
class QovctlRows : public QovctlWithEndpoint {
 protected:
  void SetUp() override {
    servesTables(kServed);
    sets({"QOVCTL_TABLES=" + file("named.json", kNamed)});
  }

  void expectUsageError(const std::vector<std::string>& arguments, const std::string& text) {
    const QovctlRun refused = ask(arguments);
    EXPECT_EQ(refused.status, 2);
    EXPECT_EQ(refused.out, "");
    EXPECT_EQ(refused.err, "qovctl: " + text + "\n");
  }
};

TEST_F(QovctlRows, HaveTheNamesOfTheFile) {
  const QovctlRun walked = ask({"walk", "--table", "things"});
  EXPECT_EQ(walked.status, 0) << walked.err;
  EXPECT_EQ(walked.out,
            "key       label     balance\n"
            "2         first     -77\n"
            "300       last\n");
  EXPECT_EQ(ask({"get", "--table", "7", "2"}).out, "label    first\nbalance  -77\nkey      2\n");
}

TEST_F(QovctlRows, AreGotByAllTheirKeys) {
  const QovctlRun got = ask({"get", "--table", "things", "300", "2", "0x12C"});
  EXPECT_EQ(got.status, 0) << got.err;
  EXPECT_EQ(got.out,
            "label  last\nkey    300\n\n"
            "label    first\nbalance  -77\nkey      2\n\n"
            "label  last\nkey    300\n");
  EXPECT_THAT(ask({"get", "counts"}).out, HasSubstr("connections  2\n"));
}

TEST_F(QovctlRows, AreOneDocumentWhateverTheirNumber) {
  const QovctlRun got = ask({"get", "--json", "--table", "things", "2", "3", "300"});
  EXPECT_EQ(got.status, 5);
  EXPECT_EQ(common::parseJson(got.out)["messages"].size(), 2U);
}

TEST_F(QovctlRows, ThatAreRefusedKeepNoneOfTheOthers) {
  const QovctlRun got = ask({"get", "--table", "things", "3", "2", "4"});
  EXPECT_EQ(got.status, 5);
  EXPECT_EQ(got.out, "label    first\nbalance  -77\nkey      2\n");
  EXPECT_EQ(got.err,
            "qovctl: key 3: the endpoint refused the request: RET 3 (no such row)\n"
            "qovctl: key 4: the endpoint refused the request: RET 3 (no such row)\n"
            "qovctl: 2 of 3 rows were refused\n");
}

TEST_F(QovctlRows, EndWithTheConnection) {
  ASSERT_TRUE(endpoint_.end(SIGTERM).ended);
  serves({"--tables", file("served.json", kServed), "--fault", "close:request=2"});
  const QovctlRun got = ask({"get", "--retries=0", "--table", "things", "2", "2", "2"});
  EXPECT_EQ(got.status, 3);
  EXPECT_EQ(got.out, "label    first\nbalance  -77\nkey      2\n");
}

TEST_F(QovctlRows, ShowTheColumnsThatAreAskedForInTheirOrder) {
  EXPECT_EQ(ask({"walk", "--table", "things", "--columns", "balance,key"}).out,
            "balance   key\n"
            "-77       2\n"
            "          300\n");
  EXPECT_EQ(ask({"walk", "--table", "things", "--columns", "status,1,9"}).out,
            "status    label     tag 9\n"
            "0         first\n"
            "0         last\n");
  EXPECT_EQ(ask({"get", "--table", "things", "2", "300", "--columns", "key,balance"}).out,
            "key      2\nbalance  -77\n\nkey  300\n");
  EXPECT_EQ(ask({"get", "counts", "--columns", "ends,stored"}).out, "ends    2\nstored  0\n");
}

TEST_F(QovctlRows, SayWhichOfTheColumnsTheyLack) {
  const QovctlRun one = ask({"get", "--table", "things", "300", "--columns", "balance"});
  EXPECT_EQ(one.status, 0);
  EXPECT_EQ(one.out, "");
  EXPECT_EQ(one.err, "qovctl: note: key 300 has no balance\n");
  const QovctlRun two =
      ask({"get", "--table", "things", "300", "2", "--columns", "9,label,balance"});
  EXPECT_EQ(two.out, "label  last\n\nlabel    first\nbalance  -77\n");
  EXPECT_EQ(two.err,
            "qovctl: note: key 300 has no tag 9, balance\n"
            "qovctl: note: key 2 has no tag 9\n");
  EXPECT_EQ(ask({"get", "counts", "--columns", "99"}).err, "qovctl: note: counts has no tag 99\n");
  EXPECT_EQ(ask({"get", "--table", "things", "2", "--columns", "balance,status"}).err, "");
}

TEST_F(QovctlRows, HaveNoColumnsButTheirOwn) {
  expectUsageError({"walk", "--table", "things", "--columns", "label,depth"},
                   "--columns: \"depth\" is no column: key, status, label, balance or a tag (up to "
                   "4095)");
  expectUsageError({"walk", "--table", "9", "--columns", "label"},
                   "--columns: \"label\" is no column: key, status or a tag (up to 4095)");
  expectUsageError({"walk", "--table", "things", "--columns", "4096"},
                   "--columns: \"4096\" is no column: key, status, label, balance or a tag (up to "
                   "4095)");
  expectUsageError({"walk", "--table", "things", "--columns", "label,"},
                   "--columns: \"\" is no column: key, status, label, balance or a tag (up to "
                   "4095)");
  expectUsageError({"get", "--table", "things", "2", "--columns", "label,key,1"},
                   "--columns: \"1\" comes twice");
}

TEST_F(QovctlRows, AreOfATableOfTheFile) {
  expectUsageError({"walk", "--table", "interfaces"},
                   "--table: \"interfaces\" is no table: things, kept or a number");
}

TEST_F(QovctlRows, AreStoredByTheNamesOfTheirColumns) {
  const QovctlRun sent = ask({"send", "--command", "store/kept", "--cell", "label:a:b", "--cell",
                              "open:true", "--cell", "mac:00Ff", "--cell", "depth:-3", "--cell",
                              "more:{\"x\":1}", "--cell", "9:Uint:0x10"});
  EXPECT_EQ(sent.status, 0) << sent.err;
  EXPECT_EQ(sent.out, "RET 0\n\ncommand  store/kept\nrows     1\n");
  EXPECT_EQ(ask({"get", "--table", "kept", "1"}).out,
            "label  a:b\nopen   1\nmac    00ff\ndepth  -3\nmore   {\"x\":1}\n"
            "tag 9  16\nkey    1\n");
}

TEST_F(QovctlRows, AreAskedForByTheNameOfTheKey) {
  EXPECT_EQ(ask({"send", "--command", "get/things", "--cell", "key:2"}).out,
            "RET 0\n\n"
            "command  get/things\nlabel    first\nbalance  -77\nkey      2\nstatus   0\n");
  EXPECT_EQ(ask({"send", "--command", "get-next/9", "--command", "7"}).out,
            "RET 2 (unknown table)\n");
}

TEST_F(QovctlRows, AreNotStoredWithValuesThatAreNone) {
  const auto refused = [&](const std::string& cell, const std::string& text) {
    expectUsageError({"send", "--command", "store/kept", "--cell", cell},
                     "--cell \"" + cell + "\": " + text);
  };
  refused("label", "not TAG:TYPE:VALUE or COLUMN:VALUE");
  refused("balance:1", "\"balance\" is neither a tag nor a column of kept");
  refused("open:maybe", "neither true, false nor a number");
  refused("mac:0", "value: not pairs of hexadecimal digits");
  refused("depth:x", "not a number of up to 64 bits (16 or 0x10)");
  refused("more:[]", "value: an array, which is a value of type Array");
  expectUsageError({"send", "--command", "store/0x1001", "--cell", "label:x"},
                   "--cell \"label:x\": \"label\" is neither a tag nor a column of a table that "
                   "has no names");
}

}  // namespace
}  // namespace qov::test
