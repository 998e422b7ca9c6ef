#ifndef QOV_MODULES_COMMON_JSON_OBJECT_H
#define QOV_MODULES_COMMON_JSON_OBJECT_H

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>

namespace qov::common {

/// JSON that is not what it should be. what() begins with the place, unless that is the whole text:
/// "records[1].cells[0].value: 300 does not fit in 1 byte".
class BadJson : public std::runtime_error {
 public:
  BadJson(const std::string& place, const std::string& why)
      : std::runtime_error(place.empty() ? why : place + ": " + why) {}
};

/// Text that is no JSON: what() is "not JSON: Line 2, Column 7: " and the reason.
class NotJson : public BadJson {
 public:
  NotJson(std::size_t line, std::size_t column, const std::string& why)
      : BadJson("", "not JSON: Line " + std::to_string(line) + ", Column " +
                        std::to_string(column) + ": " + why),
        line_(line) {}

  std::size_t line() const noexcept { return line_; }

 private:
  std::size_t line_;
};

/// A cell's value may be nested 1000 levels deep, and some more lie around it.
inline constexpr std::size_t kMaxJsonDepth = 1100;

/// Parses the whole of `text`, which is UTF-8 and JSON to the letter: no comments, nothing behind
/// the value, no key twice in one object. Throws NotJson, and BadJson for what is nested too deep.
Json::Value parseJson(std::string_view text, std::size_t maxDepth = kMaxJsonDepth);

/// The text of `json`, in indented lines, with a newline at the end.
std::string jsonText(const Json::Value& json);

/// The same in one line, with neither blanks nor an end.
std::string jsonLine(const Json::Value& json);

/// A short text that is read as `json`: all characters as they are, and all numbers with 17 digits,
/// or all with as many as they need, whichever is shorter.
std::string shortestJson(const Json::Value& json);

/// The number in the form that parseJson() gives it: JsonCpp takes numbers of two forms for
/// unequal.
Json::Value jsonNumber(std::uint64_t number);

/// The place of element `index` of the array at `place`, and of member `key` of the object there.
std::string elementPlace(const std::string& place, std::size_t index);
std::string memberPlace(const std::string& place, std::string_view key);

// The value at `place`; throw BadJson for one of another type. A number with a decimal point or an
// exponent is no integer, whatever its value.
std::uint64_t unsignedAt(const Json::Value& json, const std::string& place, std::uint64_t max);
std::int64_t signedAt(const Json::Value& json, const std::string& place, std::int64_t min,
                      std::int64_t max);
std::string textAt(const Json::Value& json, const std::string& place);
const Json::Value& arrayAt(const Json::Value& json, const std::string& place);

/// One object of the input, all of whose keys are known.
///
/// Thread: a value for one thread.
/// Owns:   its place; borrows the JSON.
/// Errors: BadJson.
class JsonObject {
 public:
  /// Refuses what is no object and keys beyond `keys`.
  JsonObject(const Json::Value& json, std::string place,
             std::initializer_list<std::string_view> keys);

  /// The member's place in the whole text.
  std::string place(const char* key) const { return memberPlace(place_, key); }
  const std::string& place() const { return place_; }

  bool has(const char* key) const { return json_.isMember(key); }
  /// Refuses an object without the member.
  const Json::Value& get(const char* key) const;

  std::string text(const char* key) const { return textAt(get(key), place(key)); }
  const Json::Value& array(const char* key) const { return arrayAt(get(key), place(key)); }

  /// The member as a number within the range of Number, or within 0 to `max`.
  template <class Number>
  Number number(const char* key, Number max = std::numeric_limits<Number>::max()) const {
    if constexpr (std::is_signed_v<Number>) {
      return static_cast<Number>(
          signedAt(get(key), place(key), std::numeric_limits<Number>::min(), max));
    } else {
      return static_cast<Number>(unsignedAt(get(key), place(key), max));
    }
  }
  template <class Number>
  Number numberOr(const char* key, Number fallback) const {
    return has(key) ? number<Number>(key) : fallback;
  }

  [[noreturn]] void refuse(const char* key, const std::string& why) const {
    throw BadJson(place(key), why);
  }

 private:
  const Json::Value& json_;
  const std::string place_;
};

}  // namespace qov::common

#endif
