#include "tests/tools/endpoint_fixture.h"
#include "tools/qov-endpoint/input_file.h"

namespace qov::test {
namespace {

using testing::HasSubstr;

class EndpointInput : public EndpointTest {
 protected:
  /// That the endpoint refuses such a file and says where and why.
  void expectRefused(const std::string& option, const std::string& content,
                     const std::string& why) {
    const std::string file = endpoint.file("input.json", content);
    EXPECT_EQ(endpoint.run({"--port", "0", option, file}).exitStatus, 2) << content;
    EXPECT_EQ(endpoint.output(), "");
    EXPECT_THAT(endpoint.errors(), testing::StartsWith("qov-endpoint: " + file + ": "));
    EXPECT_THAT(endpoint.errors(), HasSubstr(why));
  }
  void expectTableRefused(const std::string& table, const std::string& why) {
    expectRefused("--tables", R"({"tables":[{"number":1,"rows":[]},)" + table + "]}", why);
  }
  void expectFaultRefused(const std::string& fault, const std::string& why) {
    expectRefused("--scenario", R"({"faults":[{"action":"close"},)" + fault + "]}", why);
  }
};

TEST_F(EndpointInput, RefusesWhatIsNoJson) {
  for (const char* option : {"--tables", "--scenario"}) {
    expectRefused(option, "", "empty");
    expectRefused(option, "tables", "not JSON");
    expectRefused(option, "{\n\"faults\":[}", "Line 2");
    expectRefused(option, "[]", "not an object");
    expectRefused(option, "{}", "missing");
    EXPECT_EQ(endpoint.run({option, endpoint.path("none")}).exitStatus, 2);
    EXPECT_THAT(endpoint.errors(), HasSubstr("none: No such file or directory"));
  }
}

TEST_F(EndpointInput, RefusesAFileThatDoesNotEnd) {
  EXPECT_EQ(endpoint.run({"--tables", "/dev/zero"}).exitStatus, 2);
  EXPECT_EQ(endpoint.errors(), "qov-endpoint: /dev/zero: more than 256 MiB\n");
}

TEST_F(EndpointInput, RefusesADirectory) {
  EXPECT_EQ(endpoint.run({"--tables", "/"}).exitStatus, 2);
  EXPECT_EQ(endpoint.errors(), "qov-endpoint: /: Is a directory\n");
}

TEST_F(EndpointInput, RefusesAnEmptyFileForWhatItIsWhateverFailedBefore) {
  const std::string file = endpoint.file("empty.json", "");
  errno = EINTR;
  try {
    qov::endpoint::readInputFile(file, [](const Json::Value&) { FAIL() << "it was read"; });
    FAIL() << "it was not refused";
  } catch (const std::runtime_error& refused) {
    EXPECT_EQ(refused.what(), file + ": empty");
  }
}

TEST_F(EndpointInput, RefusesBadTables) {
  expectRefused("--tables", R"({"tables":{}})", "tables: not an array");
  expectRefused("--tables", R"({"tables":[],"more":1})", "more: unknown key");
  expectTableRefused("1", "tables[1]: not an object");
  expectTableRefused(R"({"rows":[]})", "tables[1].number: missing");
  expectTableRefused(R"({"number":2})", "tables[1].rows: missing");
  expectTableRefused(R"({"number":0,"rows":[]})", "tables[1].number: 0 is no table");
  expectTableRefused(R"({"number":4294967296,"rows":[]})", "tables[1].number: 4294967296");
  expectTableRefused(R"({"number":1,"rows":[]})", "tables[1].number: another table");
  expectTableRefused(R"({"number":2,"name":3,"rows":[]})", "tables[1].name: not a text");
  expectTableRefused(R"({"number":2,"rows":[],"colour":1})", "tables[1].colour: unknown key");
}

TEST_F(EndpointInput, RefusesBadRows) {
  const auto expect = [&](const std::string& row, const std::string& why) {
    expectTableRefused(R"({"number":2,"rows":[{"key":1,"cells":[]},)" + row + "]}",
                       "tables[1].rows[1]" + why);
  };
  expect(R"({"cells":[]})", ".key: missing");
  expect(R"({"key":2})", ".cells: missing");
  expect(R"({"key":0,"cells":[]})", ".key: 0 is no key");
  expect(R"({"key":-1,"cells":[]})", ".key: -1");
  expect(R"({"key":1,"cells":[]})", ": another row has this key");
  expect(R"({"key":2,"cells":[],"x":1})", ".x: unknown key");
  expect(R"({"key":2,"cells":[{"tag":1,"type":"Text","value":"a"}]})", ".cells[0].type: ");
  expect(R"({"key":2,"cells":[{"tag":4093,"type":"Uint","value":1}]})",
         ".cells[0]: tag 4093 is the endpoint's own");
  expect(R"({"key":2,"cells":[{"tag":4095,"type":"Enum","value":1}]})",
         ".cells[0]: tag 4095 is the endpoint's own");
}

TEST_F(EndpointInput, RefusesARowThatIsTooLongToBeAnswered) {
  // A head of 4, the text and its NUL; a cursor and a status of 24 together have to fit as well.
  const auto table = [](std::size_t text) {
    return R"({"number":2,"rows":[{"key":2,"cells":[{"tag":1,"type":"String","value":")" +
           std::string(text, 'x') + R"("}]}]})";
  };
  const std::size_t longest = 65535 - 24 - 4 - 1;
  expectTableRefused(table(longest + 1), "tables[1].rows[0]: ");
  const std::string fits = endpoint.file("fits.json", R"({"tables":[)" + table(longest) + "]}");
  ASSERT_TRUE(endpoint.start({"--tables", fits})) << endpoint.errors();
  EXPECT_EQ(client().exchange(message(1, record(kGetNextOf + 2))).size(), 28U + 10 + 65535 - 14);
}

TEST_F(EndpointInput, TakesTheLargestKey) {
  const std::string table = endpoint.file(
      "large.json",
      R"({"tables":[{"number":4096,"rows":[{"key":18446744073709551615,"cells":[]}]}]})");
  ASSERT_TRUE(endpoint.start({"--tables", table})) << endpoint.errors();
  const EndpointClient asking = client();
  const std::string row = record(kGetNextOf + kKept, cursor(UINT64_MAX, 8) + status(0));
  EXPECT_EQ(asking.exchange(message(1, record(kGetNextOf + kKept))), message(1, row));
  EXPECT_EQ(asking.exchange(message(2, row)), message(2, endOf(kKept)));
  // No key is left behind it.
  EXPECT_EQ(asking.exchange(message(3, record(kStoreTo + kKept))), message(3, "", 6));
}

TEST_F(EndpointInput, RefusesBadFaults) {
  expectRefused("--scenario", R"({"faults":[],"more":1})", "more: unknown key");
  expectFaultRefused("1", "faults[1]: not an object");
  expectFaultRefused("{}", "faults[1].action: missing");
  expectFaultRefused(R"({"action":3})", "faults[1].action: not a text");
  expectFaultRefused(R"({"action":"explode"})", "no action is named \"explode\"");
  expectFaultRefused(R"({"action":"silent","colour":1})", "faults[1].colour: unknown key");
  expectFaultRefused(R"({"action":"silent","after":1})",
                     "faults[1].after: means nothing to silent");
  expectFaultRefused(R"({"action":"delay"})", "delay needs seconds");
  expectFaultRefused(R"({"action":"refuse"})", "refuse needs seconds");
  expectFaultRefused(R"({"action":"ret"})", "ret needs value");
  expectFaultRefused(R"({"action":"length"})", "length needs value or add");
  expectFaultRefused(R"({"action":"length","value":1,"add":1})", "length needs value or add");
}

TEST_F(EndpointInput, RefusesNumbersOutOfRange) {
  expectFaultRefused(R"({"action":"close","connection":0})", "faults[1].connection: 0");
  expectFaultRefused(R"({"action":"close","count":0})", "faults[1].count: 0");
  expectFaultRefused(R"({"action":"close","request":-1})", "faults[1].request: -1");
  expectFaultRefused(R"({"action":"close","after":1.5})", "faults[1].after: not an integer");
  expectFaultRefused(R"({"action":"close","after":1,"request":0})", "faults[1].request: 0 is for");
  expectFaultRefused(R"({"action":"serial","request":0})", "faults[1].request: 0 is for");
  expectFaultRefused(R"({"action":"delay","seconds":-1})", "faults[1].seconds: not a number from");
  expectFaultRefused(R"({"action":"delay","seconds":3601})",
                     "faults[1].seconds: not a number from");
  expectFaultRefused(R"({"action":"delay","seconds":"1"})", "faults[1].seconds: not a number from");
  expectFaultRefused(R"({"action":"serial","add":65536})", "faults[1].add: 65536");
  expectFaultRefused(R"({"action":"serial","add":0})", "faults[1].add: 0");
  expectFaultRefused(R"({"action":"ret","value":0})", "faults[1].value: 0");
  expectFaultRefused(R"({"action":"length","value":4294967296})", "faults[1].value: 4294967296");
  expectFaultRefused(R"({"action":"length","value":1,"fill":1})", "faults[1].fill: neither");
  expectFaultRefused(R"({"action":"length","value":4194305,"fill":true})",
                     "faults[1].fill: is for");
}

TEST_F(EndpointInput, RefusesBadFaultOptions) {
  const auto expect = [&](const std::string& fault, const std::string& why) {
    EXPECT_EQ(endpoint.run({"--port", "0", "--fault", fault}).exitStatus, 2) << fault;
    EXPECT_THAT(endpoint.errors(), HasSubstr("--fault " + fault + ": " + why));
  };
  expect("explode", "action: no action is named \"explode\"");
  expect("close:", "\"\" is not key=value");
  expect("close:after", "\"after\" is not key=value");
  expect("close:=1", "\"=1\" is not key=value");
  expect("close:after=", "not JSON");
  expect("close:after=many", "not JSON");
  expect("close:after=\"1\"", "\"1\" is neither a number");
  expect("close:after=1,after=2", "\"after\" is given twice");
  expect("close:action=1", "\"action\" is given twice");
  expect("length:value=1,fill=1", "fill: neither");
}

}  // namespace
}  // namespace qov::test
