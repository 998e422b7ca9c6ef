#include "tools/qovctl/json_document.h"

#include <string>
#include <string_view>

#include "modules/common/json_object.h"
#include "tools/qovctl/streams.h"

namespace qov::ctl {
namespace {

constexpr std::string_view kIndent = "\n    ";

/// Lines end nowhere but between values.
std::string indented(std::string_view json) {
  std::string text;
  for (std::size_t end = json.find('\n'); end != std::string_view::npos; end = json.find('\n')) {
    text.append(kIndent).append(json.substr(0, end));
    json.remove_prefix(end + 1);
  }
  return text;
}

}  // namespace

JsonDocument::JsonDocument(Kind kind) : kind_(kind) {
  print("{\n  \"kind\": \"" + std::string(nameOf(kind)) + "\",\n  \"messages\": \n  [");
}

void JsonDocument::add(const Json::Value& message) {
  print((empty_ ? "" : ",") + indented(common::jsonText(message)));
  empty_ = false;
}

void JsonDocument::end() {
  print(empty_ ? "]\n}\n" : "\n  ]\n}\n");
}

}  // namespace qov::ctl
