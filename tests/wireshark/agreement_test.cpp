// Two decoders that share nothing, the library's and the dissector, read the same bytes.
//   QOV_MUTATIONS        how many mutations of the fuzz corpus; 300 without
//   QOV_MUTATIONS_SEED   of these; 1 without

#include <gtest/gtest.h>
#include <qovpub/qov_message_package.h>

#include <cstdlib>
#include <map>
#include <utility>

#include "modules/common/decode_fault.h"
#include "modules/common/message_json.h"
#include "modules/common/octets.h"
#include "tests/diag/log_capture.h"
#include "tests/support/files.h"
#include "tests/wireshark/capture.h"
#include "tests/wireshark/messages.h"
#include "tests/wireshark/mutations.h"
#include "tests/wireshark/qovctl_decode.h"
#include "tests/wireshark/tshark.h"
#include "tests/wireshark/vectors.h"

namespace qov::test {
namespace {

// Without a process for each, which would take longer than all else.
Decoded decodeWithLibrary(const std::string& bytes) {
  const auto* const begin = reinterpret_cast<const unsigned char*>(bytes.data());
  Decoded decoded;
  for (std::size_t at = 0; at < bytes.size();) {
    CT7QPackageV3 message;
    const unsigned int body =
        message.decode(begin + at, static_cast<unsigned int>(bytes.size() - at));
    if (body == CT7QPackageV3::kFailed) {
      decoded.refused = ": " + common::textOf(message.decodeFault());
      break;
    }
    decoded.messages.push_back(common::toJson(message));
    at += sizeof(TLVMsgHeadV3) + body;
  }
  return decoded;
}

std::uint64_t numberIn(const char* name, std::uint64_t otherwise) {
  const char* const text = std::getenv(name);
  return text != nullptr ? std::strtoull(text, nullptr, 0) : otherwise;
}

// The bytes as the only ones of a stream, one segment each, and what both make of them.
class WiresharkAgreement : public ::testing::Test {
 protected:
  void add(const std::string& name, const std::string& bytes) {
    // Handshakes would be three frames of four.
    Connection connection(capture_, kEndpointPort, Network::kIpv4, 0, Handshake::kMissed);
    connection.sendLast(Side::kClient, bytes);
    inputs_.push_back({name, bytes, connection.clientPort()});
  }

  void compareAll(Decoded (*decode)(const std::string&) = decodeWithQovctl) {
    std::map<std::uint16_t, std::vector<Shown>> byClient;
    for (Shown& one : Tshark().messages(capture_.file())) {
      byClient[one.clientPort].push_back(std::move(one));
    }
    for (const Input& input : inputs_) {
      SCOPED_TRACE(input.name);
      expectAgreement(byClient[input.clientPort], decode(input.bytes));
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

TEST_F(WiresharkAgreement, OfTheLibraryAndTheDissectorOnMutations) {
  Mutations mutations(QOV_FUZZED_V3, numberIn("QOV_MUTATIONS_SEED", 1));
  for (std::uint64_t left = numberIn("QOV_MUTATIONS", 300); left > 0; --left) {
    const std::string bytes = mutations.next();
    add(common::hexText(bytes), bytes);
  }
  const LogCapture log(0);  // none of the faults
  compareAll(decodeWithLibrary);
}

}  // namespace
}  // namespace qov::test
