#include "modules/common/json_object.h"

#include <json/writer.h>

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>
#include <vector>

#include "modules/common/controls.h"
#include "modules/common/octets.h"

namespace qov::common {
namespace {

[[noreturn]] void refuseRange(const Json::Value& json, const std::string& place,
                              const std::string& min, const std::string& max) {
  throw BadJson(place, json.asString() + " is not within " + min + " to " + max);
}

bool isInteger(const Json::Value& json) {
  return json.type() == Json::intValue || json.type() == Json::uintValue;
}

std::string textOfJsonCpp(const Json::Value& json) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  builder["emitUTF8"] = true;
  return Json::writeString(builder, json);
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

/// Makes values of what the parser reads, which is strict but for what read() and key() refuse.
class ValueMaker final : public nlohmann::json_sax<nlohmann::json> {
 public:
  ValueMaker(std::string_view text, std::size_t maxDepth)
      : text_(text), in_(std::string(text)), maxDepth_(maxDepth) {}

  Json::Value read() {
    // The parser skips the one and takes the other for the end.
    if (text_.substr(0, 3) == "\xEF\xBB\xBF") {
      refuse(1, "a byte order mark");
    }
    if (const std::size_t nul = text_.find('\0'); nul != std::string_view::npos) {
      refuse(nul + 1, "a NUL");
    }
    nlohmann::json::sax_parse(in_, this);
    return std::move(json_);
  }

  bool null() override { return put(Json::Value()); }
  bool boolean(bool value) override { return put(value); }
  bool number_integer(std::int64_t value) override { return put(Json::Int64{value}); }
  bool number_unsigned(std::uint64_t value) override { return put(jsonNumber(value)); }
  bool number_float(double value, const std::string&) override { return put(value); }
  bool string(std::string& value) override { return put(value); }
  bool binary(binary_t&) override { return false; }

  bool start_object(std::size_t) override { return open(Json::objectValue); }
  bool key(std::string& key) override {
    if (open_.back()->isMember(key)) {
      refuse(static_cast<std::size_t>(in_.tellg()), "another member has this key");
    }
    member_ = &(*open_.back())[key];
    return true;
  }
  bool end_object() override { return close(); }
  bool start_array(std::size_t) override { return open(Json::arrayValue); }
  bool end_array() override { return close(); }

  bool parse_error(std::size_t read, const std::string&,
                   const nlohmann::detail::exception& error) override {
    constexpr int kOverflow = 406;
    if (error.id == kOverflow) {
      refuse(read, "a number that is too large");
    }
    // Behind the parser's own form of the place; without what it has read, which may be long.
    const std::string what = error.what();
    const std::size_t why = what.find(": ") + 2;
    refuse(read, what.substr(why, what.find("; last read") - why));
  }

 private:
  /// The place is that of the last of the bytes that were read.
  [[noreturn]] void refuse(std::size_t read, const std::string& why) const {
    const std::string_view before = text_.substr(0, read - 1);
    const auto lines = static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n'));
    // Without a newline npos, which is one less than 0.
    const std::size_t column = before.size() - before.rfind('\n');
    throw NotJson(lines + 1, column, why);
  }

  Json::Value& next() {
    if (open_.size() >= maxDepth_) {
      throw BadJson("", "not JSON: nested deeper than " + std::to_string(maxDepth_) + " levels");
    }
    if (open_.empty()) {
      return json_;
    }
    return open_.back()->isArray() ? open_.back()->append(Json::Value()) : *member_;
  }
  bool put(Json::Value value) {
    next() = std::move(value);
    return true;
  }
  bool open(Json::ValueType type) {
    Json::Value& value = next();
    value = Json::Value(type);
    open_.push_back(&value);
    return true;
  }
  bool close() {
    open_.pop_back();
    return true;
  }

  const std::string_view text_;
  std::istringstream in_;
  const std::size_t maxDepth_;
  Json::Value json_;
  std::vector<Json::Value*> open_;  ///< the arrays and objects around the next value
  Json::Value* member_ = nullptr;   ///< of the innermost object
};

}  // namespace

Json::Value parseJson(std::string_view text, std::size_t maxDepth) {
  return ValueMaker(text, maxDepth).read();
}

std::string jsonText(const Json::Value& json) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "  ";
  builder["emitUTF8"] = true;
  // No blank before a colon.
  builder["enableYAMLCompatibility"] = true;
  return withEscapedControls(Json::writeString(builder, json)) + "\n";
}

std::string jsonLine(const Json::Value& json) {
  return withEscapedControls(textOfJsonCpp(json));
}

std::string shortestJson(const Json::Value& json) {
  std::string text = textOfJsonCpp(json);
  // JsonCpp writes 17 digits of every number that is no integer: 0.10000000000000001. The other
  // one writes large ones with an exponent: 1.2345678901234565e+15.
  std::string other = nlohmann::json::parse(text).dump();
  return other.size() < text.size() ? other : text;
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
      throw BadJson(memberPlace(place_, shortened(key)), "unknown key");
    }
  }
}

const Json::Value& JsonObject::get(const char* key) const {
  if (!has(key)) {
    refuse(key, "missing");
  }
  return json_[key];
}

}  // namespace qov::common
