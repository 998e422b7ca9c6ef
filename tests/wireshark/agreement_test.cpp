// Two decoders that share nothing, the library's in qovctl and the dissector, read the same bytes.

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/files.h"
#include "tests/wireshark/capture.h"
#include "tests/wireshark/tshark.h"
#include "tests/wireshark/vectors.h"

namespace qov::test {
namespace {

constexpr int kBadData = 6;

// What qovctl makes of bytes: messages and, if there is more, its complaint.
struct Decoded {
  std::vector<Json::Value> messages;
  std::string refused;
};

Decoded decodeWithQovctl(const std::string& bytes) {
  const TemporaryDirectory directory;
  writeFile(directory.file("bytes"), bytes);
  const Finished finished =
      run({QOV_QOVCTL, "decode", "--json", "--kind", "v3", directory.file("bytes")});
  Decoded decoded;
  if (!finished.out.empty()) {
    Json::Value document;
    std::istringstream(finished.out) >> document;
    EXPECT_EQ(document["kind"], "v3");
    decoded.messages.assign(document["messages"].begin(), document["messages"].end());
  }
  EXPECT_TRUE(finished.status == 0 || finished.status == kBadData) << finished.err;
  if (finished.status != 0) {
    decoded.refused = finished.err;
  }
  return decoded;
}

// The bytes as the only ones of a stream, one segment each, and what both make of them.
class WiresharkAgreement : public ::testing::Test {
 protected:
  void add(const std::string& name, const std::string& bytes) {
    Connection connection(capture_);
    connection.sendLast(Side::kClient, bytes);
    inputs_.push_back({name, bytes, connection.clientPort()});
  }

  void compareAll() {
    const std::vector<Shown> shown = Tshark().messages(capture_.file());
    for (const Input& input : inputs_) {
      SCOPED_TRACE(input.name);
      std::vector<Shown> mine;
      std::copy_if(shown.begin(), shown.end(), std::back_inserter(mine),
                   [&](const Shown& one) { return one.clientPort == input.clientPort; });
      compare(mine, decodeWithQovctl(input.bytes));
    }
  }

 private:
  struct Input {
    std::string name;
    std::string bytes;
    std::uint16_t clientPort;
  };

  static void compare(const std::vector<Shown>& shown, const Decoded& decoded) {
    ASSERT_GE(shown.size(), decoded.messages.size() + (decoded.refused.empty() ? 0 : 1));
    for (std::size_t i = 0; i < decoded.messages.size(); ++i) {
      ASSERT_EQ(meaningOf(shown[i].tree), asRead(decoded.messages[i])) << "message " << i;
    }
    if (decoded.refused.empty()) {
      EXPECT_EQ(shown.size(), decoded.messages.size());
      return;
    }
    const std::vector<std::string> experts = shown[decoded.messages.size()].experts();
    EXPECT_TRUE(std::any_of(experts.begin(), experts.end(),
                            [&](const std::string& expert) {
                              return decoded.refused.find(": " + expert + ": ") !=
                                     std::string::npos;
                            }))
        << decoded.refused << ::testing::PrintToString(experts);
  }

  const TemporaryDirectory directory_;
  Capture capture_{directory_.file("agreement.pcap")};
  std::vector<Input> inputs_;
};

TEST_F(WiresharkAgreement, OfQovctlAndTheDissectorOnTheVectors) {
  for (const StreamVector& vector : vectorsOfV3()) {
    add(vector.name, vector.bytes);
  }
  compareAll();
}

// Each vector with the bits of one byte turned: another byte, and other bits, for each vector.
TEST_F(WiresharkAgreement, OfQovctlAndTheDissectorOnDamagedVectors) {
  constexpr std::size_t kStep = 29;
  std::size_t first = 0;
  for (const StreamVector& vector : vectorsOfV3()) {
    for (std::size_t at = first; at < vector.bytes.size(); at += kStep) {
      std::string damaged = vector.bytes;
      damaged[at] =
          static_cast<char>(static_cast<unsigned char>(damaged[at]) ^ (at * 37 % 255 + 1));
      add(vector.name + " byte " + std::to_string(at), damaged);
    }
    first = (first + 5) % kStep;
  }
  compareAll();
}

}  // namespace
}  // namespace qov::test
