// How the dissector shows values, and what filters find.

#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/wireshark/capture.h"
#include "tests/wireshark/messages.h"
#include "tests/wireshark/tshark.h"

namespace qov::test {
namespace {

const std::string kNul(1, '\0');

// One cell each, in one record of one message.
class WiresharkCells : public ::testing::Test {
 protected:
  void add(unsigned int tag, unsigned int type, const std::string& value) {
    cells_ += cell(tag, type, value);
  }
  void dissect() {
    Capture capture(directory_.file("cells.pcap"));
    Connection(capture).ask(message(1, record(1, cells_)));
    shown_ = Tshark().messages(capture.file());
    ASSERT_EQ(shown_.size(), 1U);
    trees_ = all(shown_[0].tree["qov.v3.record"], "qov.v3.cell");
  }
  // The text of the cell's field, or what tells that it has none.
  std::string field(std::size_t cell, const std::string& name) const {
    return trees_.at(cell).get(name, "none").asString();
  }
  std::vector<std::string> experts(std::size_t cell) const {
    Shown shown;
    shown.tree = trees_.at(cell);
    return shown.experts();
  }

  const TemporaryDirectory directory_;
  std::string cells_;
  std::vector<Shown> shown_;
  std::vector<Json::Value> trees_;
};

using Names = std::vector<std::string>;

TEST_F(WiresharkCells, ReadNumbersOfEveryWidthAsAnAgentDoes) {
  const std::string ones(9, '\xFF');
  for (std::size_t width = 1; width <= 9; ++width) {
    add(1, kInt, ones.substr(0, width));
    add(2, kTime, ones.substr(0, width));
  }
  dissect();
  const char* const ints[] = {
      "-1", "-1", "16777215", "-1", "1099511627775", "281474976710655", "72057594037927935",
      "-1", "-1"};
  const char* const times[] = {"255",
                               "65535",
                               "16777215",
                               "4294967295",
                               "1099511627775",
                               "281474976710655",
                               "72057594037927935",
                               "18446744073709551615",
                               "18446744073709551615"};
  for (std::size_t width = 1; width <= 9; ++width) {
    EXPECT_EQ(field(2 * width - 2, "qov.v3.cell.int"), ints[width - 1]) << width;
    EXPECT_EQ(field(2 * width - 1, "qov.v3.cell.time"), times[width - 1]) << width;
    EXPECT_EQ(experts(2 * width - 2), width > 8 ? Names{"width"} : Names()) << width;
  }
}

TEST_F(WiresharkCells, ShowTextOnlyIfItIsText) {
  const std::string good[] = {"", "plain", "\xC2\x80 \xDF\xBF",
                              "\xE0\xA0\x80 \xED\x9F\xBF \xEE\x80\x80 \xEF\xBF\xBF",
                              "\xF0\x90\x80\x80 \xF4\x8F\xBF\xBF"};
  const std::string bad[] = {"\x80",
                             "\xC1\xBF",
                             "\xC2",
                             "\xE0\x9F\xBF",
                             "\xED\xA0\x80",
                             "\xE2\x82",
                             "\xF0\x8F\xBF\xBF",
                             "\xF4\x90\x80\x80",
                             "\xF5\x80\x80\x80"};
  for (const std::string& text : good) {
    add(1, kString, text + kNul);
  }
  for (const std::string& text : bad) {
    add(2, kString, text + kNul);
  }
  add(3, kString, "no end");
  add(3, kString, "a" + kNul + "b");
  add(3, kString, "a" + kNul + kNul);
  add(3, kJson, "\xFF" + kNul);
  dissect();
  std::size_t at = 0;
  for (const std::string& text : good) {
    EXPECT_EQ(field(at, "qov.v3.cell.string"), text);
    EXPECT_EQ(experts(at++), Names());
  }
  for (; at < trees_.size(); ++at) {
    EXPECT_EQ(field(at, "qov.v3.cell.string"), "none") << at;
    EXPECT_EQ(experts(at), Names{"text"}) << at;
  }
  EXPECT_EQ(field(at - 1, "qov.v3.cell.json"), "none");
  EXPECT_EQ(field(at - 3, "qov.v3.cell.octets"), "61:00:62");
}

TEST_F(WiresharkCells, TellWhatAWalkGoesBy) {
  add(4095, kEnum, "\x01");
  add(4093, kUint, "\x02\x01");
  add(4094, kEnum, "\x01");
  dissect();
  EXPECT_EQ(field(0, "qov.v3.status"), "1");
  EXPECT_EQ(field(1, "qov.v3.cursor"), "258");
  EXPECT_EQ(field(2, "qov.v3.status"), "none");
}

TEST_F(WiresharkCells, TellAStatusThatIsSignedAsAnAgentReportsIt) {
  add(4095, kInt, "\xFF");
  dissect();
  EXPECT_EQ(field(0, "qov.v3.status"), "18446744073709551615");
}

// An agent finds the first cell of the tag, and an empty one as another tag's.
TEST_F(WiresharkCells, TellNoStatusThatAnAgentDoesNotFind) {
  add(4095, kEnum, "");
  add(4095, kString, "1" + kNul);
  add(4095, kEnum, "\x01");
  add(4093, kUint, "\x05");
  add(4093, kUint, "\x06");
  dissect();
  EXPECT_EQ(field(0, "qov.v3.status"), "none");
  EXPECT_EQ(experts(0), Names{"empty"});
  EXPECT_EQ(field(1, "qov.v3.status"), "none");
  EXPECT_EQ(experts(1), Names{"status"});
  EXPECT_EQ(field(2, "qov.v3.status"), "none");
  EXPECT_EQ(field(3, "qov.v3.cursor"), "5");
  EXPECT_EQ(field(4, "qov.v3.cursor"), "none");
}

TEST_F(WiresharkCells, TellAStatusForEachRecord) {
  const auto status = [](const std::string& value) { return cell(4095, kEnum, value); };
  Capture capture(directory_.file("records.pcap"));
  Connection(capture).ask(
      message(1, record(1, status("\x01") + status("\x03")) + record(2, status("\x07"))));
  EXPECT_EQ(Tshark().fields(capture.file(), "qov.v3", {"qov.v3.status", "_ws.col.Info"}),
            std::vector<std::string>{
                "1,7\tRequest SER=1 cmd=0x0000000000000001 records=2 cells=3 status=1"});
}

TEST_F(WiresharkCells, AreFoundByFilters) {
  const std::string cells = cell(7, kString, "eth0" + kNul) +
                            cell(8, kUint, std::string(8, '\xFF')) + cell(9, kInt, "\xFE") +
                            cell(10, kOctet, "\x02\x42\x0A") + cell(11, kJson, "{\"a\":1}" + kNul) +
                            cell(12, kArray, "[1,2]" + kNul) + cell(13, kBool, "\x01") +
                            cell(14, kTime, std::string("\0\0\0\x40", 4));
  Capture capture(directory_.file("filters.pcap"));
  Connection connection(capture);
  connection.ask(message(1, record(0x100000003, cells)));
  connection.answer(message(1, record(2, cell(7, kString, "eth01" + kNul)), 5));
  const std::string all =
      "qov.v3.cell.string == \"eth0\" && qov.v3.cell.uint == 18446744073709551615 && "
      "qov.v3.cell.int < 0 && qov.v3.cell.octets[1:2] == 42:0a && qov.v3.cell.json contains "
      "\"\\\"a\\\"\" && qov.v3.cell.array matches \"^.1,2.$\" && qov.v3.cell.bool == 1 && "
      "qov.v3.cell.time >= 0x40000000 && qov.v3.record.cmd == 0x100000003 && qov.v3.cell.type == 9 "
      "&& qov.v3.cell.tag == 14 && qov.v3.ser == 1 && qov.v3.request";
  const std::vector<std::string> fields = {"qov.v3.ret", "qov.v3.cell.string"};
  EXPECT_EQ(Tshark().fields(capture.file(), all, fields), std::vector<std::string>{"0\teth0"});
  EXPECT_EQ(Tshark().fields(capture.file(), "qov.v3.expert.result && qov.v3.ret == 5", fields),
            std::vector<std::string>{"5\teth01"});
}

TEST(WiresharkText, CannotSteerATerminalOrTurnTheDirectionOfWriting) {
  const TemporaryDirectory directory;
  Capture capture(directory.file("text.pcap"));
  const std::string text =
      "a\x1b[2J\x7F\xC2\x85\xD8\x9C\xE2\x80\xAE\xE2\x81\xA6 \xC2\xA0\xE2\x80\x90";
  Connection(capture).ask(message(1, record(1, cell(1, kString, text + kNul))));
  const Finished shown = Tshark().start(capture.file(), {"-V", "-O", "qov.v3"});
  EXPECT_NE(
      shown.out.find("Cell: tag 1, String, \"a\\x1b[2J\\x7f\\xc2\\x85\\xd8\\x9c\\xe2\\x80\\xae"
                     "\\xe2\\x81\\xa6 \xC2\xA0\xE2\x80\x90\""),
      std::string::npos)
      << shown.out;
  for (const char* control :
       {"\x1b", "\x7F", "\xC2\x85", "\xD8\x9C", "\xE2\x80\xAE", "\xE2\x81\xA6"}) {
    EXPECT_EQ(shown.out.find(control), std::string::npos) << shown.out;
  }
}

}  // namespace
}  // namespace qov::test
