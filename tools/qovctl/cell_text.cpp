#include "tools/qovctl/cell_text.h"

#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>

#include "modules/common/cell_json.h"
#include "modules/common/json_object.h"
#include "tools/qovctl/failure.h"
#include "tools/qovctl/numbers.h"

namespace qov::ctl {
namespace {

using common::BadJson;

/// As numbers are elsewhere on the command line, and with a minus in front.
std::optional<Json::Value> signedNumberOf(std::string_view text) {
  if (text.substr(0, 1) != "-") {
    const auto number = numberOf(text, std::numeric_limits<std::uint64_t>::max());
    return number ? std::optional(common::jsonNumber(*number)) : std::nullopt;
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
      return common::parseJson(text);
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

CTLVCell cellOf(std::uint64_t tag, CTLVCell::ETLVType type, const std::string& value) {
  Json::Value json(Json::objectValue);
  json["tag"] = common::jsonNumber(tag);
  json["type"] = CTLVCell::typeName(type);
  json["value"] = valueOf(type, value);
  return common::cellFromJson(json, "");
}

/// What stands in front of the next colon, which is taken off `text` with it; nothing without one.
std::optional<std::string> takeWord(std::string& text) {
  const std::size_t colon = text.find(':');
  if (colon == std::string::npos) {
    return std::nullopt;
  }
  std::string word = text.substr(0, colon);
  text.erase(0, colon + 1);
  return word;
}

[[noreturn]] void refuseColumn(const std::string& name, const Table* table) {
  throw BadJson("", "\"" + shortened(name) + "\" is neither a tag nor a column of " +
                        (table != nullptr ? table->name : "a table that has no names"));
}

}  // namespace

CTLVCell cellOfText(const std::string& text, const Table* table) {
  std::string rest = text;
  const auto first = takeWord(rest);
  if (!first) {
    throw BadJson("", "not TAG:TYPE:VALUE or COLUMN:VALUE");
  }
  if (const Column* column = columnOf(table, *first)) {
    return cellOf(column->tag, column->type, rest);
  }
  const auto tag = numberOf(*first, std::numeric_limits<std::uint64_t>::max());
  if (!tag) {
    refuseColumn(*first, table);
  }
  if (*tag > MAX_TAG_VALUE) {
    throw BadJson("", "the tag is no number up to " + std::to_string(MAX_TAG_VALUE));
  }
  const auto type = takeWord(rest);
  if (!type) {
    throw BadJson("", "not TAG:TYPE:VALUE");
  }
  return cellOf(*tag, common::typeFromName(*type, "type"), rest);
}

}  // namespace qov::ctl
