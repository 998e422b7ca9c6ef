// What the dissector says of bytes that decoding refuses, each beside a twin just inside the limit.

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/files.h"
#include "tests/wireshark/capture.h"
#include "tests/wireshark/messages.h"
#include "tests/wireshark/tshark.h"

namespace qov::test {
namespace {

struct Case {
  std::string bytes;
  std::vector<std::string> experts;
  std::string text;   ///< of the first of them
  std::size_t data;   ///< bytes that are left as they are
  std::size_t cells;  ///< how many are shown
};

std::string withType(unsigned int type) {
  return message(1, record(1, cell(1, kUint, "\x01") + cell(2, type, "abc")));
}

// One record; its last cell, of 4 bytes and a value of 3, says that it has `length` bytes.
std::string withCellLength(char length) {
  std::string bytes = withType(kOctet);
  bytes[bytes.size() - 5] = length;
  return bytes;
}

// One record of a good cell and `rest`, which is less than a cell.
std::string withRest(const std::string& rest) {
  return message(1, record(1, cell(1, kUint, "\x01") + rest));
}

// A record of 5 bytes of cells that says that it has `length`.
std::string withRecordLength(char length) {
  std::string bytes = message(1, record(2, cell(1, kUint, "\x01")));
  bytes[28 + 8] = length;
  return bytes;
}

std::string withVersion(char version) {
  std::string bytes = message(1, record(1));
  bytes[4] = version;
  return bytes;
}

std::string withMagic(char last) {
  std::string bytes = message(1, "");
  bytes[3] = last;
  return bytes;
}

std::vector<Case> cases() {
  const std::string good = message(1, record(1, cell(1, kUint, "\x01")));
  return {
      {good, {}, "", 0, 1},
      {good.substr(0, 27), {"head-short"}, "The stream ends within a head", 27, 0},
      {good.substr(0, 28), {"cut", "length"}, "", 0, 0},
      {good.substr(0, good.size() - 1), {"cut", "length"}, "", 0, 0},
      {withMagic('U'), {}, "", 0, 0},
      {withMagic('V'), {"magic"}, "No message begins here: the magic is not \"UUUU\"", 28, 0},
      {withVersion(2), {"version"}, "The version is 2, not 3", 10, 0},
      {withVersion(4), {"version"}, "The version is 4, not 3", 10, 0},
      {message(1, record(1) + std::string(1, 'x')),
       {"record-short"},
       "Too few bytes are left for a record: 1 of 10",
       1,
       0},
      {message(1, std::string(9, 'x')),
       {"record-short"},
       "Too few bytes are left for a record: 9 of 10",
       9,
       0},
      {message(1, record(0)), {}, "", 0, 0},
      {withRecordLength(6),
       {"record-length"},
       "The record is too long: 6 bytes of cells where 5 are left",
       5,
       0},
      {withRecordLength(5), {}, "", 0, 1},
      {withRest("a"), {"cell-short"}, "Too few bytes are left for a cell: 1 of 4", 1, 1},
      {withRest("abc"), {"cell-short"}, "Too few bytes are left for a cell: 3 of 4", 3, 1},
      {message(1, record(1, "ab") + record(2)),
       {"cell-length"},
       "The cell's head goes beyond its record: 2 of 4 bytes are left",
       12,
       0},
      {withRest(cell(2, kOctet, "")),
       {"empty"},
       "An agent reads an empty cell as tag 4094, Invalid",
       0,
       2},
      {withType(10), {"cell-type"}, "The cell's type 10 is above 9", 7, 1},
      {withType(15), {"cell-type"}, "The cell's type 15 is above 9", 7, 1},
      {withType(9), {}, "", 0, 2},
      {withCellLength(4),
       {"cell-length"},
       "The cell's value is too long: 4 bytes where 3 are left",
       7,
       1},
      {withCellLength(3), {}, "", 0, 2},
  };
}

std::size_t dataBytes(const Json::Value& tree) {
  return (tree.get("qov.v3.data", "").asString().size() + 1) / 3;
}

std::size_t cellsOf(const Json::Value& tree) {
  std::size_t count = 0;
  for (const Json::Value& record : all(tree, "qov.v3.record")) {
    count += all(record, "qov.v3.cell").size();
  }
  return count;
}

TEST(WiresharkMalformed, MessagesAreShownUpToTheFaultWhichIsNamed) {
  const TemporaryDirectory directory;
  Capture capture(directory.file("malformed.pcap"));
  const std::vector<Case> all = cases();
  for (const Case& one : all) {
    Connection(capture).sendLast(Side::kClient, one.bytes);
  }
  const std::vector<Shown> shown = Tshark().messages(capture.file());
  ASSERT_EQ(shown.size(), all.size());
  for (std::size_t i = 0; i < all.size(); ++i) {
    SCOPED_TRACE(i);
    EXPECT_EQ(shown[i].experts(), all[i].experts);
    if (!all[i].text.empty()) {
      EXPECT_EQ(shown[i].expertText(all[i].experts.front()), all[i].text);
    }
    EXPECT_EQ(dataBytes(shown[i].tree), all[i].data);
    EXPECT_EQ(cellsOf(shown[i].tree), all[i].cells);
  }
}

TEST(WiresharkMalformed, MessagesDoNotHideThoseBehindThem) {
  const TemporaryDirectory directory;
  Capture capture(directory.file("behind.pcap"));
  Connection connection(capture);
  connection.ask(withType(10) + withRest("a") + withRecordLength(6) + message(2, ""));
  const std::vector<Shown> shown = Tshark().messages(capture.file());
  ASSERT_EQ(shown.size(), 4U);
  EXPECT_EQ(shown[3].tree["qov.v3.ser"], "2");
  EXPECT_TRUE(shown[3].experts().empty());
}

}  // namespace
}  // namespace qov::test
