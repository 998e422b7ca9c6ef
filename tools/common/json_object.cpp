#include "tools/common/json_object.h"

#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

#include "tools/common/controls.h"
#include "tools/common/json_grammar.h"
#include "tools/common/octets.h"

namespace qov::tools {
namespace {

[[noreturn]] void refuseRange(const Json::Value& json, const std::string& place,
                              const std::string& min, const std::string& max) {
  throw BadJson(place, json.asString() + " is not within " + min + " to " + max);
}

bool isInteger(const Json::Value& json) {
  return json.type() == Json::intValue || json.type() == Json::uintValue;
}

/// The first of JsonCpp's complaints, which come in several lines.
std::string firstComplaint(const std::string& complaints) {
  std::string line = complaints.substr(0, complaints.find('\n', complaints.find('\n') + 1));
  std::replace(line.begin(), line.end(), '\n', ' ');
  return line.compare(0, 2, "* ") == 0 ? line.substr(2) : line;
}

/// JsonCpp escapes only those below the blank. The others stand nowhere but in strings.
std::string withEscapedControls(const std::string& json) {
  std::string escaped;
  for (std::size_t at = 0; at < json.size(); ++at) {
    const Control control = json[at] == '\n' ? Control{0, 0} : controlAt(json, at);
    if (control.length == 0) {
      escaped += json[at];
    } else {
      const std::array<char, 2> code{static_cast<char>(control.code >> 8),
                                     static_cast<char>(control.code & 0xFFU)};
      escaped += "\\u" + hexText({code.data(), code.size()});
      at += control.length - 1;
    }
  }
  return escaped;
}

/// In the words of JsonCpp's complaints.
std::string placeText(std::string_view text, std::size_t at) {
  const std::string_view before = text.substr(0, at);
  const auto lines = std::count(before.begin(), before.end(), '\n');
  // Without a newline npos, which is one less than 0.
  const std::size_t column = at - before.rfind('\n');
  return "Line " + std::to_string(lines + 1) + ", Column " + std::to_string(column) + "   ";
}

void refuseLaxJson(std::string_view text) {
  if (const auto lax = findLaxJson(text)) {
    throw BadJson("", "not JSON: " + placeText(text, lax->at) + lax->why);
  }
}

}  // namespace

Json::Value parseJson(std::string_view text, int maxDepth) {
  if (!isUtf8(text)) {
    throw BadJson("", "not JSON: not UTF-8");
  }
  Json::CharReaderBuilder builder;
  Json::CharReaderBuilder::strictMode(&builder.settings_);
  builder["strictRoot"] = false;
  builder["stackLimit"] = maxDepth;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  Json::Value json;
  std::string complaints;
  try {
    if (!reader->parse(text.data(), text.data() + text.size(), &json, &complaints)) {
      throw BadJson("", "not JSON: " + firstComplaint(complaints));
    }
  } catch (const Json::Exception&) {
    throw BadJson("", "not JSON: nested deeper than " + std::to_string(maxDepth) + " levels");
  }
  refuseLaxJson(text);
  return json;
}

std::string jsonText(const Json::Value& json) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "  ";
  builder["emitUTF8"] = true;
  // No blank before a colon.
  builder["enableYAMLCompatibility"] = true;
  return withEscapedControls(Json::writeString(builder, json)) + "\n";
}

Json::Value jsonNumber(std::uint64_t number) {
  return number <= static_cast<std::uint64_t>(Json::Value::maxInt64)
             ? Json::Value(static_cast<Json::Int64>(number))
             : Json::Value(Json::UInt64{number});
}

std::string elementPlace(const std::string& place, std::size_t index) {
  return place + "[" + std::to_string(index) + "]";
}

std::string memberPlace(const std::string& place, std::string_view key) {
  return (place.empty() ? "" : place + ".").append(key);
}

std::uint64_t unsignedAt(const Json::Value& json, const std::string& place, std::uint64_t max) {
  if (!isInteger(json)) {
    throw BadJson(place, "not an integer of up to 64 bits");
  }
  if (!json.isUInt64() || json.asUInt64() > max) {
    refuseRange(json, place, "0", std::to_string(max));
  }
  return json.asUInt64();
}

std::int64_t signedAt(const Json::Value& json, const std::string& place, std::int64_t min,
                      std::int64_t max) {
  if (!isInteger(json)) {
    throw BadJson(place, "not an integer of up to 64 bits");
  }
  if (!json.isInt64() || json.asInt64() < min || json.asInt64() > max) {
    refuseRange(json, place, std::to_string(min), std::to_string(max));
  }
  return json.asInt64();
}

std::string textAt(const Json::Value& json, const std::string& place) {
  if (!json.isString()) {
    throw BadJson(place, "not a text");
  }
  return json.asString();
}

const Json::Value& arrayAt(const Json::Value& json, const std::string& place) {
  if (!json.isArray()) {
    throw BadJson(place, "not an array");
  }
  return json;
}

JsonObject::JsonObject(const Json::Value& json, std::string place,
                       std::initializer_list<std::string_view> keys)
    : json_(json), place_(std::move(place)) {
  if (!json.isObject()) {
    throw BadJson(place_, "not an object");
  }
  for (const std::string& key : json.getMemberNames()) {
    if (std::find(keys.begin(), keys.end(), key) == keys.end()) {
      throw BadJson(memberPlace(place_, key), "unknown key");
    }
  }
}

const Json::Value& JsonObject::get(const char* key) const {
  if (!has(key)) {
    refuse(key, "missing");
  }
  return json_[key];
}

}  // namespace qov::tools
