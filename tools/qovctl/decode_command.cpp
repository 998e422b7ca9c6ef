#include "tools/qovctl/decode_command.h"

#include <string_view>

#include "tools/qovctl/failure.h"
#include "tools/qovctl/fault_text.h"
#include "tools/qovctl/hex_text.h"
#include "tools/qovctl/json_document.h"
#include "tools/qovctl/streams.h"

namespace qov::ctl {
namespace {

std::string inputOf(const DecodeOptions& options) {
  if (options.text) {
    return bytesOfHexText(*options.text);
  }
  std::string content = readInput(options.file);
  return options.hex ? bytesOfHexText(content) : content;
}

/// Prints messages, each at once, as text or in one JSON document for each row of messages of one
/// kind.
class Printer {
 public:
  explicit Printer(bool json) : json_(json) {}

  /// Messages of this kind follow.
  void begin(Kind kind) {
    if (json_ && !(document_ && document_->kind() == kind)) {
      end();
      document_.emplace(kind);
    }
  }
  void add(const Message& message) {
    if (document_) {
      document_->add(message.json());
    } else {
      print(message.dump());
    }
  }
  void end() {
    if (document_) {
      document_->end();
    }
  }

 private:
  const bool json_;
  std::optional<JsonDocument> document_;
};

/// Prints the message at the start of `rest`, which `start` bytes precede, and returns its size.
std::size_t decodeOne(std::string_view rest, std::size_t start, std::optional<Kind> kind,
                      Printer& printer) {
  if (!kind) {
    kind = kindOfBytes(rest);
  }
  if (!kind) {
    throw Failure(kBadData, unknownKindText(rest, start));
  }
  printer.begin(*kind);
  Message message(*kind);
  const auto size = message.decode(rest);
  if (!size) {
    throw Failure(kBadData, textOf(message.fault(), *kind, start));
  }
  printer.add(message);
  return *size;
}

void decodeAll(std::string_view input, std::optional<Kind> kind, Printer& printer) {
  std::size_t start = 0;
  // Input without a byte has no message, either.
  do {
    start += decodeOne(input.substr(start), start, kind, printer);
  } while (start < input.size());
}

}  // namespace

void decode(const DecodeOptions& options) {
  const std::string input = inputOf(options);
  Printer printer(options.json);
  try {
    decodeAll(input, options.kind, printer);
  } catch (...) {
    printer.end();
    throw;
  }
  printer.end();
}

}  // namespace qov::ctl
