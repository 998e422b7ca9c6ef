// Messages as large as an agent takes them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/files.h"
#include "tests/wireshark/capture.h"
#include "tests/wireshark/messages.h"
#include "tests/wireshark/tshark.h"

namespace qov::test {
namespace {

using ::testing::Each;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr std::size_t kLargestBody = 2097152 - 28;
constexpr std::size_t kSegment = 1460;

void sendInSegments(Connection& connection, const std::string& bytes) {
  for (std::size_t at = 0; at < bytes.size(); at += kSegment) {
    connection.ask(bytes.substr(at, kSegment));
  }
}

// Records of `cells`, and one whose cell, of the type `last`, has as many bytes as are missing.
std::string largestBody(const std::string& cells, unsigned int last = kOctet) {
  const std::string each = record(1, cells);
  std::string body;
  while (kLargestBody - body.size() >= each.size() + 14) {
    body += each;
  }
  const std::size_t missing = kLargestBody - body.size() - 14;
  return body + record(2, cell(1, last, std::string(missing, 'x')));
}

TEST(WiresharkLargeMessages, AreJoinedFromTheirSegments) {
  const TemporaryDirectory directory;
  Capture capture(directory.file("large.pcap"));
  Connection connection(capture);
  const std::string body = largestBody(cell(3, kOctet, std::string(60000, 'y')));
  ASSERT_EQ(body.size(), kLargestBody);
  sendInSegments(connection, message(1, body) + message(2, ""));
  const std::vector<std::string> lines =
      Tshark().fields(capture.file(), "qov.v3", {"_ws.col.Info", "_ws.expert.message"});
  EXPECT_EQ(lines, std::vector<std::string>{"Request SER=1 cmd=0x0000000000000001 records=35 "
                                            "cells=35 | Request SER=2 records=0 cells=0\t"});
}

// More cells than Wireshark lets into a tree: past its limit it would call the script broken.
TEST(WiresharkLargeMessages, OfCountlessCellsAreCheckedToTheEnd) {
  const TemporaryDirectory directory;
  Capture capture(directory.file("countless.pcap"));
  Connection connection(capture);
  std::string cells;
  for (int i = 0; i < 16000; ++i) {
    cells += cell(3, kUint, "");
  }
  sendInSegments(connection, message(1, largestBody(cells)));
  sendInSegments(connection, message(2, largestBody(cells, 10)));
  const std::vector<std::string> lines =
      Tshark().fields(capture.file(), "qov.v3", {"_ws.col.Info", "_ws.expert.message"});
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_THAT(lines, Each(HasSubstr("Only the first 20000 records and cells of this frame are")));
  EXPECT_THAT(lines[0], HasSubstr("records=33 cells=512001\t"));
  EXPECT_THAT(lines[1], HasSubstr("records=33 cells=512000 [not whole]\t"));
  EXPECT_THAT(lines[1], EndsWith("The cell's type 10 is above 9"));
}

// What follows a segment that comes late is all in its frame then, far more than Wireshark lets
// into a tree.
TEST(WiresharkLargeMessages, AreCheckedToTheEndWhenAFrameHasManyOfThem) {
  const TemporaryDirectory directory;
  Capture capture(directory.file("behind.pcap"));
  std::string cells;
  for (int i = 0; i < 5000; ++i) {
    cells += cell(3, kUint, "\x01");
  }
  std::string bytes;
  for (std::uint16_t serial = 1; serial <= 40; ++serial) {
    bytes += message(serial, record(7, cells));
  }
  Connection connection(capture);
  connection.lose(Side::kClient, kSegment);
  sendInSegments(connection, bytes.substr(kSegment));
  connection.sendAt(Side::kClient, 0, bytes.substr(0, kSegment));
  const Tshark tshark({"-o", "tcp.reassemble_out_of_order:TRUE"});
  const std::vector<std::string> lines =
      tshark.fields(capture.file(), "qov.v3", {"qov.v3.ser", "_ws.expert.message"});
  std::string serials = "1";
  for (int serial = 2; serial <= 40; ++serial) {
    serials += "," + std::to_string(serial);
  }
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_THAT(lines[0], StartsWith(serials + "\t"));
  EXPECT_THAT(lines[0], EndsWith("Only the first 20000 records and cells of this frame are shown"));
}

}  // namespace
}  // namespace qov::test
