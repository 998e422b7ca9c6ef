#include "tools/qovctl/request.h"

#include <qovpub/qov_exception.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>

#include "tools/common/cell_json.h"
#include "tools/common/json_object.h"
#include "tools/common/message_json.h"
#include "tools/qovctl/failure.h"
#include "tools/qovctl/message.h"
#include "tools/qovctl/tables.h"

namespace qov::ctl {
namespace {

using tools::BadJson;

/// As numbers are elsewhere on the command line, and with a minus in front.
std::optional<Json::Value> signedNumberOf(std::string_view text) {
  if (text.substr(0, 1) != "-") {
    const auto number = numberOf(text, std::numeric_limits<std::uint64_t>::max());
    return number ? std::optional(tools::jsonNumber(*number)) : std::nullopt;
  }
  const auto number = numberOf(text.substr(1), std::uint64_t{1} << 63);
  return number ? std::optional(Json::Value(static_cast<Json::Int64>(0 - *number))) : std::nullopt;
}

Json::Value valueOf(CTLVCell::ETLVType type, const std::string& text) {
  switch (type) {
    case CTLVCell::TLV_INVALID:
    case CTLVCell::TLV_OCTET:
    case CTLVCell::TLV_STRING:
      return text;
    case CTLVCell::TLV_ARRAY:
    case CTLVCell::TLV_JSON:
      return tools::parseJson(text);
    default:
      break;
  }
  const bool isBool = type == CTLVCell::TLV_BOOL;
  if (isBool && (text == "true" || text == "false")) {
    return text == "true";
  }
  const auto number = signedNumberOf(text);
  if (!number) {
    throw BadJson("", isBool ? "neither true, false nor a number"
                             : "not a number of up to 64 bits (16 or 0x10)");
  }
  return *number;
}

CTLVCell cellOfText(const std::string& text) {
  const std::size_t first = text.find(':');
  const std::size_t second = first == std::string::npos ? first : text.find(':', first + 1);
  if (second == std::string::npos) {
    throw BadJson("", "not TAG:TYPE:VALUE");
  }
  const auto tag = numberOf(text.substr(0, first), MAX_TAG_VALUE);
  if (!tag) {
    throw BadJson("", "the tag is no number up to " + std::to_string(MAX_TAG_VALUE));
  }
  Json::Value json(Json::objectValue);
  json["tag"] = tools::jsonNumber(*tag);
  const std::string type = text.substr(first + 1, second - first - 1);
  json["type"] = type;
  json["value"] = valueOf(tools::typeFromName(type, "type"), text.substr(second + 1));
  return tools::cellFromJson(json, "");
}

void addPart(const RequestPart& part, CT7QPackageV3& request) {
  if (!part.isCell) {
    const auto command = commandOfText(part.text);
    if (!command) {
      throw BadJson("", "no command");
    }
    request.addRecord(*command);
    return;
  }
  if (request.count() == 0) {
    throw BadJson("", "a cell without a command before it");
  }
  request[request.count() - 1].add(cellOfText(part.text));
}

}  // namespace

void requestFromJson(const std::string& text, CT7QPackageV3& request) {
  const Json::Value json = tools::parseJson(text);
  if (!json.isObject() || !json.isMember("messages")) {
    tools::fromJson(json, "", request);
    return;
  }
  const tools::JsonObject document(json, "", {"kind", "messages"});
  if (document.text("kind") != nameOf(Kind::kV3)) {
    document.refuse("kind", "not \"v3\": an endpoint speaks nothing else");
  }
  const Json::Value& messages = document.array("messages");
  if (messages.size() != 1) {
    document.refuse("messages", std::to_string(messages.size()) + " messages; one can be sent");
  }
  tools::fromJson(messages[0], "messages[0]", request);
}

void requestFromParts(const std::vector<RequestPart>& parts, CT7QPackageV3& request) {
  for (const RequestPart& part : parts) {
    const std::string place =
        (part.isCell ? "--cell \"" : "--command \"") + shortened(part.text) + "\": ";
    try {
      addPart(part, request);
    } catch (const BadJson& e) {
      throw Failure(kUsage, place + e.what());
    } catch (const CQOV_Exception& e) {
      throw Failure(kUsage, place + tools::reasonOf(e));
    }
  }
}

}  // namespace qov::ctl
