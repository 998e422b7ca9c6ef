#include "tools/qovctl/agent_parts.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "modules/common/controls.h"
#include "modules/common/json_object.h"

namespace qov::ctl {
namespace {

std::string format(const char* pattern, long long first, long long second) {
  std::array<char, 64> bytes{};
  std::snprintf(bytes.data(), bytes.size(), pattern, first, second);
  return bytes.data();
}

}  // namespace

const Json::Value& member(const Json::Value& object, const char* key) {
  if (!object.isObject()) {
    throw common::BadJson(key, "is to be a member of an object");
  }
  return object[key];
}

std::string text(const Json::Value& object, const char* key) {
  const Json::Value& value = member(object, key);
  if (value.isNull() || value.isObject() || value.isArray()) {
    return "-";
  }
  return common::withoutControls(value.asString());
}

Json::Value part(const Json::Value& object, const char* key) {
  const Json::Value& value = member(object, key);
  return value.isObject() ? value : Json::Value(Json::objectValue);
}

double seconds(const Json::Value& object, const char* key) {
  const Json::Value& value = member(object, key);
  return value.isNumeric() ? value.asDouble() : 0;
}

std::string lines(const std::vector<Row>& rows) {
  std::vector<std::size_t> widths(rows.front().size());
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], row[i].size());
    }
  }
  std::string all;
  for (const Row& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      line += row[i] + std::string(widths[i] - row[i].size() + 2, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    all += line + "\n";
  }
  return all;
}

std::string spanText(double seconds) {
  if (seconds <= 0) {
    return "-";
  }
  // An agent may tell anything.
  seconds = std::min(seconds, 1e9);
  const auto whole = static_cast<long long>(seconds);
  if (whole >= 86400) {
    return format("%lldd %lldh", whole / 86400, whole % 86400 / 3600);
  }
  if (whole >= 3600) {
    return format("%lldh %02lldm", whole / 3600, whole % 3600 / 60);
  }
  if (whole >= 60) {
    return format("%lldm %02llds", whole / 60, whole % 60);
  }
  const auto nanoseconds = static_cast<long long>(seconds * 1e9);
  if (whole >= 1) {
    return format("%lld.%llds", whole, nanoseconds % 1000000000 / 100000000);
  }
  if (nanoseconds >= 10000000) {
    return format("%lldms", nanoseconds / 1000000, 0);
  }
  if (nanoseconds >= 1000000) {
    return format("%lld.%lldms", nanoseconds / 1000000, nanoseconds % 1000000 / 100000);
  }
  return nanoseconds >= 1000 ? format("%lldus", nanoseconds / 1000, 0)
                             : format("%lldns", nanoseconds, 0);
}

}  // namespace qov::ctl
