#include "tools/qov-endpoint/fault_json.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>
#include <vector>

#include "modules/common/json_object.h"

namespace qov::endpoint {
namespace {

using qov::common::JsonObject;

constexpr std::int64_t kInt32Min = INT32_MIN;
constexpr std::int64_t kUint32Max = UINT32_MAX;
constexpr double kLongestSeconds = 3600;

struct Rule {
  const char* name;
  Action action;
  std::vector<std::string> keys;
  /// Of these exactly one must be there; none need be when there are none.
  std::vector<const char*> needed;
  // The range of "value", and what it is when it is left out.
  std::int64_t least = 0;
  std::int64_t most = 0;
  std::optional<std::int64_t> otherwise = std::nullopt;
};

const std::vector<Rule>& rules() {
  constexpr std::int64_t kGarbage = 0x47424152;
  constexpr std::int64_t kOddStatus = 7;
  static const std::vector<Rule> kRules{
      {"close", Action::kClose, {"after"}, {}},
      {"delay", Action::kDelay, {"seconds"}, {"seconds"}},
      {"drip", Action::kDrip, {"seconds"}, {}},
      {"serial", Action::kSerial, {"add"}, {}},
      {"ret", Action::kRet, {"value"}, {"value"}, 1, kUint32Max},
      {"length",
       Action::kLength,
       {"value", "add", "fill"},
       {"value", "add"},
       kInt32Min,
       kUint32Max},
      {"magic", Action::kMagic, {"value"}, {}, 0, kUint32Max, kGarbage},
      {"two-records", Action::kTwoRecords, {}, {}},
      {"no-record", Action::kNoRecord, {}, {}},
      {"no-status", Action::kNoStatus, {}, {}},
      {"text-status", Action::kTextStatus, {}, {}},
      {"status", Action::kStatus, {"value"}, {}, 0, INT64_MAX, kOddStatus},
      {"no-end", Action::kNoEnd, {}, {}},
      {"refuse", Action::kRefuse, {"seconds"}, {"seconds"}},
      {"silent", Action::kSilent, {}, {}}};
  return kRules;
}

const Rule& ruleOf(const JsonObject& json) {
  const std::string name = json.text("action");
  for (const Rule& rule : rules()) {
    if (name == rule.name) {
      return rule;
    }
  }
  json.refuse("action", "no action is named \"" + name + "\"");
}

/// Refuses what means nothing to the action, and looks for what it needs.
void checkKeys(const Rule& rule, const JsonObject& json) {
  for (const char* key : {"after", "seconds", "value", "add", "fill"}) {
    const bool wanted = std::find(rule.keys.begin(), rule.keys.end(), key) != rule.keys.end();
    if (json.has(key) && !wanted) {
      json.refuse(key, std::string("means nothing to ") + rule.name);
    }
  }
  const auto given = std::count_if(rule.needed.begin(), rule.needed.end(),
                                   [&](const char* key) { return json.has(key); });
  if (!rule.needed.empty() && given != 1) {
    std::string names;
    for (const char* key : rule.needed) {
      names += (names.empty() ? "" : " or ") + std::string(key);
    }
    json.refuse("action", std::string(rule.name) + " needs " + names);
  }
}

std::int64_t numberOf(const JsonObject& json, const char* key, std::int64_t least,
                      std::int64_t most) {
  return qov::common::signedAt(json.get(key), json.place(key), least, most);
}

std::optional<std::uint64_t> ordinalOf(const JsonObject& json, const char* key,
                                       std::int64_t least) {
  if (!json.has(key)) {
    return std::nullopt;
  }
  return static_cast<std::uint64_t>(numberOf(json, key, least, INT64_MAX));
}

std::chrono::milliseconds timeOf(const JsonObject& json) {
  if (!json.has("seconds")) {
    return std::chrono::milliseconds(0);
  }
  const Json::Value& seconds = json.get("seconds");
  if (!seconds.isNumeric() || seconds.asDouble() < 0 || seconds.asDouble() > kLongestSeconds) {
    json.refuse("seconds", "not a number from 0 to 3600");
  }
  return std::chrono::milliseconds(std::lround(seconds.asDouble() * 1000));
}

bool flagOf(const JsonObject& json, const char* key) {
  if (json.has(key) && !json.get(key).isBool()) {
    json.refuse(key, "neither true nor false");
  }
  return json.has(key) && json.get(key).asBool();
}

std::int64_t addOf(const JsonObject& json, Action action) {
  // All that makes another serial number of it.
  constexpr std::int64_t kMostOfSerial = UINT16_MAX;
  if (!json.has("add")) {
    return action == Action::kSerial ? 1 : 0;
  }
  return action == Action::kSerial ? numberOf(json, "add", 1, kMostOfSerial)
                                   : numberOf(json, "add", kInt32Min, kUint32Max);
}

std::optional<std::int64_t> valueOf(const JsonObject& json, const Rule& rule) {
  if (json.has("value")) {
    return numberOf(json, "value", rule.least, rule.most);
  }
  return rule.otherwise;
}

void checkTogether(const JsonObject& json, const Fault& fault) {
  const bool atAccept =
      fault.action == Action::kRefuse || (fault.action == Action::kClose && fault.after == 0);
  if (fault.request == 0U && !atAccept) {
    json.refuse("request", "0 is for refuse, and for close after 0 bytes");
  }
  const std::int64_t claimed = fault.value.value_or(fault.add);
  if (fault.fill && claimed > kLongestFilled) {
    json.refuse("fill", "is for lengths of up to " + std::to_string(kLongestFilled));
  }
}

}  // namespace

const char* nameOf(Action action) {
  const auto rule = std::find_if(rules().begin(), rules().end(),
                                 [&](const Rule& each) { return each.action == action; });
  return rule != rules().end() ? rule->name : "";
}

Fault faultOf(const Json::Value& json, const std::string& place) {
  const JsonObject object(
      json, place,
      {"action", "connection", "request", "count", "after", "seconds", "value", "add", "fill"});
  const Rule& rule = ruleOf(object);
  checkKeys(rule, object);
  Fault fault;
  fault.action = rule.action;
  fault.connection = ordinalOf(object, "connection", 1);
  fault.request = ordinalOf(object, "request", 0);
  fault.left = ordinalOf(object, "count", 1);
  fault.after = ordinalOf(object, "after", 0).value_or(0);
  fault.time = timeOf(object);
  fault.value = valueOf(object, rule);
  fault.add = addOf(object, rule.action);
  fault.fill = flagOf(object, "fill");
  checkTogether(object, fault);
  return fault;
}

}  // namespace qov::endpoint
