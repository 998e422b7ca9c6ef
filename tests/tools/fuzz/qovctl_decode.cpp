// The first byte of the input says how `qovctl decode` is called, the rest is what it reads.
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "modules/common/json_object.h"
#include "modules/common/message_json.h"
#include "tests/support/fuzz.h"
#include "tools/qovctl/decode_command.h"
#include "tools/qovctl/failure.h"
#include "tools/qovctl/hex_text.h"
#include "tools/qovctl/streams.h"

using namespace qov;
using test::require;

namespace {

/// Standard input and output, in memory.
class Streams {
 public:
  explicit Streams(std::string_view input) : input_(stdin), output_(stdout) {
    // What it reads is not changed.
    stdin = ::fmemopen(const_cast<char*>(input.data()), input.size(), "r");
    stdout = ::open_memstream(&text_, &size_);
  }
  ~Streams() {
    std::fclose(stdin);
    std::fclose(stdout);
    std::free(text_);
    stdin = input_;
    stdout = output_;
  }
  Streams(const Streams&) = delete;
  Streams& operator=(const Streams&) = delete;

  std::string_view printed() const {
    ctl::finishOutput();
    return {text_, size_};
  }

 private:
  std::FILE* const input_;
  std::FILE* const output_;
  char* text_ = nullptr;
  std::size_t size_ = 0;
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

/// Whether all of the input was decoded.
bool decodes(const ctl::DecodeOptions& options) {
  try {
    ctl::decode(options);
    return true;
  } catch (const ctl::Failure& failure) {
    require(failure.code() == ctl::kBadData, "only bad data is refused");
    return false;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  test::silence();
  const unsigned int choice = size == 0 ? 0U : *data;
  const std::string input = size == 0 ? "" : test::textOf(data + 1, size - 1);
  const Streams streams(input);
  ctl::DecodeOptions options;
  options.file = "-";
  options.json = (choice & 1U) != 0;
  options.hex = (choice & 2U) != 0;
  if (const unsigned int kind = choice >> 2U & 3U; kind != 3) {
    options.kind = static_cast<ctl::Kind>(kind);
  }
  const bool isWhole = decodes(options);
  const std::string_view text = streams.printed();
  if (options.json && options.kind && !text.empty()) {
    std::size_t bytes = 0;
    const Json::Value document = common::parseJson(text);
    for (const Json::Value& message : document["messages"]) {
      bytes += sizeBack(message, *options.kind);
    }
    const std::string read = options.hex && isWhole ? ctl::bytesOfHexText(input) : input;
    require(!isWhole || bytes == read.size(), "the messages are all of the input");
  }
  return 0;
}
