// The first line of the input is a fault, as --fault has it; the rest is what one client sends.
#include <memory>
#include <stdexcept>

#include "tests/support/fuzz.h"
#include "tools/qov-endpoint/exchanges.h"
#include "tools/qov-endpoint/framing.h"

using namespace qov;
using endpoint::Frame;
using test::require;

namespace {

endpoint::Rows liveRows() {
  endpoint::Rows rows;
  rows[1].addString(1, "lo").addBool(2, true);
  rows[300].addString(1, "eth0").addUnsigned(4, 1500);
  return rows;
}

/// An endpoint of one run.
class Endpoint {
 public:
  explicit Endpoint(const std::string& fault) {
    tables_.addLive(endpoint::kInterfaces, liveRows);
    tables_.addRow(7, 2, CTLVRecordV3().addString(1, "first"));
    tables_.addRow(7, UINT64_MAX, CTLVRecordV3().addString(1, "last"));
    if (!fault.empty()) {
      scenario_.addOption(fault);
    }
    exchanges_.accept(1);
  }

  std::string answer(std::string request) {
    return exchanges_.exchange({1, ++requests_}, request, walks_).bytes;
  }

 private:
  endpoint::Tables tables_;
  endpoint::Scenario scenario_;
  endpoint::CountsFile counts_;
  const endpoint::Log log_{endpoint::Log::Level::kQuiet};
  endpoint::Exchanges exchanges_{tables_, scenario_, counts_, log_};
  endpoint::Walks walks_{tables_};
  std::uint64_t requests_ = 0;
};

/// Without a fault every request has an answer that its client takes.
void checkAnswer(const std::string& request, const std::string& bytes) {
  const Frame frame = endpoint::frameOf(bytes);
  require(frame.kind == Frame::Kind::kWhole && frame.size == bytes.size(),
          "an answer is a message");
  CT7QPackageV3 answer;
  const unsigned int body = answer.decode(reinterpret_cast<const unsigned char*>(bytes.data()),
                                          static_cast<unsigned int>(bytes.size()));
  require(body != CT7QPackageV3::kFailed, "an answer can be decoded");
  constexpr std::size_t kSerialAt = offsetof(TLVMsgHeadV3, ser_);
  require(bytes.compare(kSerialAt, 2, request, kSerialAt, 2) == 0, "an answer has the serial");
  require(answer.count() == (answer.head().ret_ == endpoint::kOk ? 1 : 0),
          "an answer has a record unless it refuses");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  test::silence();
  std::string input = test::textOf(data, size);
  const std::string fault = test::takeLine(input);
  std::unique_ptr<Endpoint> endpoint;
  try {
    endpoint = std::make_unique<Endpoint>(fault);
  } catch (const std::runtime_error&) {
    return 0;  // no fault
  }
  for (Frame frame = endpoint::frameOf(input); frame.kind == Frame::Kind::kWhole;
       frame = endpoint::frameOf(input)) {
    const std::string request = input.substr(0, frame.size);
    input.erase(0, frame.size);
    const std::string answer = endpoint->answer(request);
    if (fault.empty()) {
      checkAnswer(request, answer);
    }
  }
  return 0;
}
