// The first byte of the input says how `qovctl decode` is called, the rest is what it reads.
#include <cstdio>
#include <string_view>

#include "modules/common/json_object.h"
#include "modules/common/message_json.h"
#include "tests/support/fuzz.h"
#include "tests/tools/fuzz/captured_stream.h"
#include "tools/qovctl/decode_command.h"
#include "tools/qovctl/failure.h"
#include "tools/qovctl/hex_text.h"

using namespace qov;
using test::require;

namespace {

/// Standard input, in memory.
class StandardInput {
 public:
  explicit StandardInput(std::string_view input) : before_(stdin) {
    // What it reads is not changed.
    stdin = ::fmemopen(const_cast<char*>(input.data()), input.size(), "r");
  }
  ~StandardInput() {
    std::fclose(stdin);
    stdin = before_;
  }
  StandardInput(const StandardInput&) = delete;
  StandardInput& operator=(const StandardInput&) = delete;

 private:
  std::FILE* const before_;
};

std::size_t sizeOf(const CT7QPackageV3& message) {
  return sizeof(TLVMsgHeadV3) + common::bodyLength(message);
}
std::size_t sizeOf(const CQOV_MsgPackage& message) {
  return sizeof(QOVMsgHead) + common::bodyLength(message);
}
std::size_t sizeOf(const CQOV_OM_MsgPackage& message) {
  return sizeof(QOVMsgHead) + sizeOf(*message.get());
}

/// The bytes of the message, which gives the same JSON again.
template <class Package>
std::size_t sizeBack(const Json::Value& json, Package message) {
  common::fromJson(json, "", message);
  require(common::toJson(message) == json, "a message that is read back is shown as before");
  return sizeOf(message);
}

std::size_t sizeBack(const Json::Value& json, ctl::Kind kind) {
  switch (kind) {
    case ctl::Kind::kV3:
      return sizeBack(json, CT7QPackageV3());
    case ctl::Kind::kInternal:
      return sizeBack(json, CQOV_MsgPackage());
    default:
      return sizeBack(json, CQOV_OM_MsgPackage(nullptr));
  }
}

/// The bytes of the messages of documents, each of which has a row of messages of one kind.
std::size_t sizeBack(std::string_view documents) {
  constexpr std::string_view kEnd = "\n}\n";
  std::size_t bytes = 0;
  while (!documents.empty()) {
    const std::size_t end = documents.find(kEnd);
    require(end != std::string_view::npos, "a document ends");
    const Json::Value document = common::parseJson(documents.substr(0, end + kEnd.size()));
    documents.remove_prefix(end + kEnd.size());
    const auto kind = ctl::kindOf(document["kind"].asString());
    require(kind.has_value(), "a document has a kind");
    for (const Json::Value& message : document["messages"]) {
      bytes += sizeBack(message, *kind);
    }
  }
  return bytes;
}

struct Outcome {
  bool isWhole;  ///< all of the input was decoded
  std::string text;
};

Outcome decoded(const std::string& input, const ctl::DecodeOptions& options) {
  const StandardInput standard(input);
  const test::CapturedStream output(stdout);
  bool isWhole = true;
  try {
    ctl::decode(options);
  } catch (const ctl::Failure& failure) {
    require(failure.code() == ctl::kBadData, "only bad data is refused");
    isWhole = false;
  }
  return {isWhole, output.text()};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  test::silence();
  const unsigned int choice = size == 0 ? 0U : *data;
  const std::string input = size == 0 ? "" : test::textOf(data + 1, size - 1);
  ctl::DecodeOptions options;
  options.file = "-";
  options.hex = (choice & 2U) != 0;
  if (const unsigned int kind = choice >> 2U & 3U; kind != 3) {
    options.kind = static_cast<ctl::Kind>(kind);
  }
  options.json = true;
  const Outcome json = decoded(input, options);
  const std::size_t bytes = sizeBack(json.text);
  if (json.isWhole) {
    require(bytes == (options.hex ? ctl::bytesOfHexText(input) : input).size(),
            "the messages are all of the input");
  }
  if ((choice & 1U) == 0) {
    options.json = false;
    const Outcome text = decoded(input, options);
    require(text.isWhole == json.isWhole && text.text.empty() == (bytes == 0),
            "text has the messages that JSON has");
  }
  return 0;
}
