// The first byte of the input chooses the form of a record, the second where its message is cut in
// two pieces; the rest is the message.
#include <algorithm>
#include <cstdarg>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "diag/record.h"
#include "tests/support/fuzz.h"

using namespace qov;
using test::require;

namespace {

/// So little room that most messages need memory.
class SmallRecord : public RecordOf<64> {
 public:
  explicit SmallRecord(LogForm form) : RecordOf("QOVPUBLIC", 65556, "ERR", "function", 377, form) {}

  void printOne(const char* format, ...) __attribute__((format(printf, 2, 3))) {
    va_list args;
    va_start(args, format);
    print(format, args);
    va_end(args);
  }
};

unsigned int digitOf(char digit) {
  return static_cast<unsigned int>(digit <= '9' ? digit - '0' : digit - 'a' + 10);
}

bool beginsCharacter(const std::string& text, std::size_t at) {
  const auto isUtf8 = [&](std::size_t size) {
    return at + size <= text.size() && nlohmann::json::accept('"' + text.substr(at, size) + '"');
  };
  return isUtf8(2) || isUtf8(3) || isUtf8(4);
}

/// What the message was, by its escapes.
std::string unescaped(std::string_view text, bool isJson) {
  const std::size_t zeros = isJson ? 2 : 0;
  std::string bytes;
  std::vector<std::size_t> wide;  // from 80 on, and escaped
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '\\') {
      bytes += text[at];
      continue;
    }
    require(++at < text.size(), "an escape is whole");
    if (text[at] == (isJson ? 'u' : 'x')) {
      require(at + zeros + 2 < text.size(), "an escape is whole");
      if (text[at + zeros + 1] > '7') {
        wide.push_back(bytes.size());
      }
      bytes +=
          static_cast<char>(digitOf(text[at + zeros + 1]) << 4U | digitOf(text[at + zeros + 2]));
      at += zeros + 2;
    } else {
      bytes += text[at] == 'n' ? '\n' : text[at] == 'r' ? '\r' : text[at];
    }
  }
  require(isJson ? std::none_of(wide.begin(), wide.end(),
                                [&](std::size_t each) { return beginsCharacter(bytes, each); })
                 : wide.empty(),
          "characters from U+0080 on are not escaped");
  return bytes;
}

void check(const Record& record, const std::string& message) {
  require(record.isComplete() && record.line().back() == '\n', "a record has an end");
  const LogForm form = record.form();
  if (!form.rewrites()) {
    require(record.message() == message, "a message stands as it is");
    return;
  }
  const std::string_view line = record.line().substr(0, record.line().size() - 1);
  require(std::none_of(line.begin(), line.end(), [](unsigned char byte) { return byte < 0x20; }),
          "a record is one line");
  const bool isJson = form.has(LogForm::kJson);
  require(isJson || line.find('\x7F') == std::string_view::npos, "a line steers no terminal");
  require(unescaped(record.message(), isJson) == message, "a message can be told from its escapes");
  require(!isJson || nlohmann::json::accept(line), "a record as JSON is JSON");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) {
    return 0;
  }
  LogForm form;
  if ((data[0] & 1U) != 0) {
    form = form.with(LogForm::kEscape);
  }
  if ((data[0] & 2U) != 0) {
    form = form.with(LogForm::kJson);
  }
  const std::string message = test::textOf(data + 2, size - 2);
  const std::size_t cut = std::min<std::size_t>(data[1], message.size());
  SmallRecord record(form);
  record.add(std::string_view(message).substr(0, cut));
  record.add(std::string_view(message).substr(cut));
  record.finish();
  check(record, message);
  SmallRecord printed(form);
  printed.printOne("%s", message.c_str());
  printed.finish();
  check(printed, message.c_str());
  return 0;
}
