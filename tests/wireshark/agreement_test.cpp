// Two decoders that share nothing, the library's in qovctl and the dissector, read the same bytes.

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>

#include "tests/support/files.h"
#include "tests/wireshark/capture.h"
#include "tests/wireshark/messages.h"
#include "tests/wireshark/qovctl_decode.h"
#include "tests/wireshark/tshark.h"
#include "tests/wireshark/vectors.h"

namespace qov::test {
namespace {

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
      expectAgreement(mine, decodeWithQovctl(input.bytes));
    }
  }

 private:
  struct Input {
    std::string name;
    std::string bytes;
    std::uint16_t clientPort;
  };

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

// Every type with values of every width, most of which make no sense.
TEST_F(WiresharkAgreement, OfQovctlAndTheDissectorOnValuesOfEveryTypeAndWidth) {
  const std::string patterns[] = {std::string(9, '\xFF'), std::string(9, '\0'), "123456789",
                                  "\x7F\x80\x81\x82\x83\x84\x85\x86\x87",
                                  "\xE2\x82\xAC\xC3\xA4\xF0\x9D\x84\x9E"};
  for (unsigned int type = kInvalid; type <= kTime; ++type) {
    std::string cells;
    for (const std::string& pattern : patterns) {
      for (std::size_t width = 0; width <= pattern.size(); ++width) {
        cells += cell(1, type, pattern.substr(0, width));
        cells += cell(2, type, pattern.substr(0, width) + std::string(1, '\0'));
        cells += cell(3, type, "[" + pattern.substr(0, width) + "]" + std::string(1, '\0'));
      }
    }
    add("type " + std::to_string(type), message(1, record(1, cells)));
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
