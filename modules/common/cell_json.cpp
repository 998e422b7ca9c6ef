#include "modules/common/cell_json.h"

#include <qovpub/qov_exception.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string_view>

#include "modules/common/controls.h"
#include "modules/common/json_object.h"
#include "modules/common/octets.h"

namespace qov::common {
namespace {

constexpr const char* kOctets = "octets";

std::string_view bytesOf(const CTLVCell& cell) {
  return {reinterpret_cast<const char*>(cell.value()), cell.length()};
}

Json::Value octetsObject(const CTLVCell& cell) {
  Json::Value value(Json::objectValue);
  value[kOctets] = hexText(bytesOf(cell));
  return value;
}

bool isOctetsObject(const Json::Value& value) {
  return value.isObject() && value.size() == 1 && value.isMember(kOctets);
}

/// Whether the value is text and its NUL and nothing more.
bool isText(const CTLVCell& cell) {
  return cell.text().size() + 1 == cell.length() && isUtf8(cell.text());
}

Json::Value textValue(const CTLVCell& cell) {
  const std::string_view text = cell.text();
  return isText(cell) ? Json::Value(text.data(), text.data() + text.size()) : octetsObject(cell);
}

/// Whether it can be written in a cell of that length. Seldom not at once.
bool fits(const Json::Value& value, std::size_t length) {
  return jsonLine(value).size() < length || shortestJson(value).size() < length;
}

Json::Value parsedValue(const CTLVCell& cell) try {
  // As deep as the library reads it.
  constexpr std::size_t kDepth = 1000;
  Json::Value value = parseJson(cell.text(), kDepth);
  const bool isShown = isText(cell) && value.isArray() == (cell.type() == CTLVCell::TLV_ARRAY) &&
                       !isOctetsObject(value) && fits(value, cell.length());
  return isShown ? value : octetsObject(cell);
} catch (const BadJson&) {
  return octetsObject(cell);
}

Json::Value shownValue(const CTLVCell& cell) {
  switch (cell.type()) {
    case CTLVCell::TLV_STRING:
      return textValue(cell);
    case CTLVCell::TLV_INT:
      return static_cast<Json::Int64>(cell.number());
    case CTLVCell::TLV_UINT:
    case CTLVCell::TLV_BOOL:
    case CTLVCell::TLV_ENUM:
    case CTLVCell::TLV_TIME:
      return jsonNumber(cell.number());
    case CTLVCell::TLV_ARRAY:
    case CTLVCell::TLV_JSON:
      return parsedValue(cell);
    default:
      return hexText(bytesOf(cell));
  }
}

/// What the members of a cell say, apart from its value.
struct Description {
  CTLVCell::ETLVType type;
  unsigned short tag;
  const Json::Value& value;
  std::string place;  // of the value
  const JsonObject& object;

  bool hasLength() const { return object.has("length"); }
  unsigned short length() const { return object.number<unsigned short>("length"); }
};

[[noreturn]] void refuse(const Description& cell, const std::string& why) {
  throw BadJson(cell.place, why);
}

/// A cell of these bytes, which are as many as the length says, if it says anything.
CTLVCell cellOfBytes(const Description& cell, std::string_view bytes) {
  if (bytes.size() > CTLVCell::kMaxLength) {
    refuse(cell, std::to_string(bytes.size()) + " bytes are more than a cell holds");
  }
  if (cell.hasLength() && cell.length() != bytes.size()) {
    cell.object.refuse("length", std::to_string(cell.length()) + ", but the value has " +
                                     std::to_string(bytes.size()) + " bytes");
  }
  return CTLVCell(cell.type, cell.tag, bytes.data(), bytes.size());
}

CTLVCell cellOfHex(const Description& cell, const std::string& text, const std::string& place) {
  const auto bytes = bytesOfHex(text);
  if (!bytes) {
    throw BadJson(place, "not pairs of hexadecimal digits");
  }
  return cellOfBytes(cell, *bytes);
}

/// The number in the low bytes of a value of `length` bytes.
CTLVCell cellOfWidth(const Description& cell, std::uint64_t number, unsigned short length) {
  std::string bytes(length, '\0');
  for (std::size_t i = 0; i < std::min<std::size_t>(length, sizeof number); ++i) {
    bytes[i] = static_cast<char>(number >> 8 * i & 0xFF);
  }
  return CTLVCell(cell.type, cell.tag, bytes.data(), bytes.size());
}

CTLVCell cellOfNumber(const Description& cell, std::uint64_t number) {
  if (cell.hasLength()) {
    CTLVCell made = cellOfWidth(cell, number, cell.length());
    if (made.number() != number) {
      refuse(cell, cell.value.asString() + " is not what is read from " +
                       std::to_string(cell.length()) + " bytes");
    }
    return made;
  }
  // Eight bytes hold every number.
  constexpr unsigned short kShorter[] = {1, 2, 4};
  for (const unsigned short width : kShorter) {
    CTLVCell made = cellOfWidth(cell, number, width);
    if (made.number() == number) {
      return made;
    }
  }
  return cellOfWidth(cell, number, 8);
}

CTLVCell cellOfText(const Description& cell) {
  const std::string text = textAt(cell.value, cell.place);
  if (!isUtf8(text)) {
    refuse(cell, "not UTF-8; use {\"octets\":\"...\"}");
  }
  if (text.find('\0') != std::string::npos) {
    refuse(cell, "holds a NUL; use {\"octets\":\"...\"}");
  }
  return cellOfBytes(cell, {text.c_str(), text.size() + 1});
}

/// The text as the library writes it.
std::string compactText(const Json::Value& value) {
  CTLVCell cell;
  cell.set(0, value);
  return std::string(cell.text());
}

CTLVCell cellOfJson(const Description& cell) {
  const bool array = cell.type == CTLVCell::TLV_ARRAY;
  if (cell.value.isArray() != array) {
    refuse(cell, array ? "not an array" : "an array, which is a value of type Array");
  }
  std::string text = compactText(cell.value);
  if (cell.hasLength() && cell.length() <= text.size()) {
    text = shortestJson(cell.value);
  }
  if (cell.hasLength() && cell.length() > text.size()) {
    text.resize(cell.length() - std::size_t{1}, ' ');
  }
  return cellOfBytes(cell, {text.c_str(), text.size() + 1});
}

CTLVCell cellOfUnsigned(const Description& cell) {
  return cellOfNumber(
      cell, unsignedAt(cell.value, cell.place, std::numeric_limits<std::uint64_t>::max()));
}

CTLVCell cellOfValue(const Description& cell) {
  constexpr auto kInt64 = std::numeric_limits<std::int64_t>();
  switch (cell.type) {
    case CTLVCell::TLV_STRING:
      return cellOfText(cell);
    case CTLVCell::TLV_INT:
      return cellOfNumber(cell, static_cast<std::uint64_t>(
                                    signedAt(cell.value, cell.place, kInt64.min(), kInt64.max())));
    case CTLVCell::TLV_BOOL:
      return cell.value.isBool() ? cellOfNumber(cell, cell.value.asBool() ? 1 : 0)
                                 : cellOfUnsigned(cell);
    case CTLVCell::TLV_UINT:
    case CTLVCell::TLV_ENUM:
    case CTLVCell::TLV_TIME:
      return cellOfUnsigned(cell);
    case CTLVCell::TLV_ARRAY:
    case CTLVCell::TLV_JSON:
      return cellOfJson(cell);
    default:
      return cellOfHex(cell, textAt(cell.value, cell.place), cell.place);
  }
}

CTLVCell cellOfDescription(const Description& cell) {
  if (isOctetsObject(cell.value)) {
    const std::string place = memberPlace(cell.place, kOctets);
    return cellOfHex(cell, textAt(cell.value[kOctets], place), place);
  }
  try {
    return cellOfValue(cell);
  } catch (const CQOV_Exception& e) {
    refuse(cell, reasonOf(e));
  }
}

}  // namespace

Json::Value toJson(const CTLVCell& cell) {
  Json::Value json(Json::objectValue);
  json["tag"] = jsonNumber(cell.tag());
  json["type"] = CTLVCell::typeName(cell.type());
  json["length"] = jsonNumber(cell.length());
  json["value"] = shownValue(cell);
  return json;
}

std::string reasonOf(const CQOV_Exception& refusal) {
  constexpr std::string_view kName = "CQOV_Exception: ";
  return std::string(std::string_view(refusal.what()).substr(kName.size()));
}

CTLVCell::ETLVType typeFromName(const std::string& name, const std::string& place) {
  for (unsigned short type = CTLVCell::TLV_INVALID; type <= CTLVCell::TLV_TIME; ++type) {
    if (name == CTLVCell::typeName(type)) {
      return static_cast<CTLVCell::ETLVType>(type);
    }
  }
  throw BadJson(place, "\"" + shortened(name) + "\" is no type");
}

CTLVCell cellFromJson(const Json::Value& json, const std::string& place) {
  const JsonObject object(json, place, {"tag", "type", "length", "value"});
  const auto tag = object.number<unsigned short>("tag", MAX_TAG_VALUE);
  const auto type = typeFromName(object.text("type"), object.place("type"));
  return cellOfDescription({type, tag, object.get("value"), object.place("value"), object});
}

}  // namespace qov::common
