// The first byte of the input chooses a fault; the rest is what one client sends.
#include <array>
#include <cstddef>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/fuzz.h"
#include "tools/qov-endpoint/exchanges.h"
#include "tools/qov-endpoint/framing.h"

using namespace qov;
using endpoint::Frame;
using test::require;

namespace {

/// What a client gets.
enum class Gives {
  kAnswer,   ///< the answer, sooner or later
  kMessage,  ///< a message to its request
  kForeign,  ///< a message whose header is no answer's to its request
  kAny,      ///< any bytes
  kNothing,
};

struct Choice {
  const char* fault;
  Gives gives;
};

constexpr std::array<Choice, 19> kChoices{{{"", Gives::kAnswer},
                                           {"delay:seconds=1", Gives::kAnswer},
                                           {"drip:seconds=0.1", Gives::kAnswer},
                                           {"ret:value=7", Gives::kMessage},
                                           {"two-records", Gives::kMessage},
                                           {"no-record", Gives::kMessage},
                                           {"no-status", Gives::kMessage},
                                           {"text-status", Gives::kMessage},
                                           {"status:value=9", Gives::kMessage},
                                           {"no-end", Gives::kMessage},
                                           {"serial:add=1", Gives::kForeign},
                                           {"magic", Gives::kForeign},
                                           {"length:value=-1", Gives::kAny},
                                           {"length:value=70000,fill=true", Gives::kAny},
                                           {"length:add=-4,fill=true,request=2", Gives::kAny},
                                           {"close:after=30", Gives::kAny},
                                           {"close:after=0", Gives::kNothing},
                                           {"refuse:seconds=1", Gives::kNothing},
                                           {"silent", Gives::kNothing}}};

endpoint::Rows liveRows() {
  static const endpoint::Rows rows = [] {
    endpoint::Rows made;
    made[1].addString(1, "lo").addBool(2, true);
    made[300].addString(1, "eth0").addUnsigned(4, 1500);
    return made;
  }();
  return rows;
}

endpoint::Tables standingTables() {
  static const endpoint::Tables tables = [] {
    endpoint::Tables made;
    made.addLive(endpoint::kInterfaces, liveRows);
    made.addRow(7, 2, CTLVRecordV3().addString(1, "first"));
    made.addRow(7, UINT64_MAX, CTLVRecordV3().addString(1, "last"));
    return made;
  }();
  return tables;
}

endpoint::Scenario scenarioOf(std::size_t choice) {
  static const std::vector<endpoint::Scenario> scenarios = [] {
    std::vector<endpoint::Scenario> made(kChoices.size());
    for (std::size_t i = 1; i < made.size(); ++i) {
      made[i].addOption(kChoices[i].fault);
    }
    return made;
  }();
  return scenarios[choice];
}

/// An endpoint of one run.
class Endpoint {
 public:
  explicit Endpoint(std::size_t choice) : tables_(standingTables()), scenario_(scenarioOf(choice)) {
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

void checkAnswer(const std::string& request, const std::string& bytes, Gives gives) {
  if (gives == Gives::kNothing) {
    require(bytes.empty(), "nothing comes");
  }
  if (gives == Gives::kNothing || gives == Gives::kAny) {
    return;
  }
  constexpr std::size_t kSerialAt = offsetof(TLVMsgHeadV3, ser_);
  const bool hasSerial = bytes.compare(kSerialAt, 2, request, kSerialAt, 2) == 0;
  const bool hasMagic = bytes.compare(0, 4, request, 0, 4) == 0;
  if (gives == Gives::kForeign) {
    require(!hasSerial || !hasMagic, "a foreign message shows by its header");
    return;
  }
  const Frame frame = endpoint::frameOf(bytes);
  require(frame.kind == Frame::Kind::kWhole && frame.size == bytes.size(),
          "an answer is a message");
  CT7QPackageV3 answer;
  const unsigned int body = answer.decode(reinterpret_cast<const unsigned char*>(bytes.data()),
                                          static_cast<unsigned int>(bytes.size()));
  require(body != CT7QPackageV3::kFailed, "an answer can be decoded");
  require(hasSerial, "an answer has the serial");
  require(
      gives == Gives::kMessage || answer.count() == (answer.head().ret_ == endpoint::kOk ? 1 : 0),
      "an answer has a record unless it refuses");
}

/// A good head that announces more than there is announces what is there instead: few inputs have
/// a length that fits.
void fitLength(std::string& input) {
  const Frame::Kind kind = endpoint::frameOf(input).kind;
  if (input.size() >= sizeof(TLVMsgHeadV3) &&
      (kind == Frame::Kind::kIncomplete || kind == Frame::Kind::kTooLong)) {
    const auto length = static_cast<std::uint32_t>(input.size() - sizeof(TLVMsgHeadV3));
    std::memcpy(&input[offsetof(TLVMsgHeadV3, len_)], &length, sizeof length);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  test::silence();
  const std::size_t choice = size == 0 ? 0 : *data % kChoices.size();
  std::string input = size == 0 ? "" : test::textOf(data + 1, size - 1);
  Endpoint endpoint(choice);
  for (fitLength(input); endpoint::frameOf(input).kind == Frame::Kind::kWhole; fitLength(input)) {
    const std::string request = input.substr(0, endpoint::frameOf(input).size);
    input.erase(0, request.size());
    checkAnswer(request, endpoint.answer(request), kChoices[choice].gives);
  }
  return 0;
}
