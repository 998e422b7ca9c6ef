#include "tools/qovctl/top_document.h"

#include <map>
#include <string>
#include <utility>

#include "modules/common/json_object.h"
#include "tools/qovctl/agent_parts.h"

namespace qov::ctl {
namespace {

double handledBy(const Json::Value& module) {
  return seconds(part(module, "handled"), "count");
}

/// By the modules' ids.
std::map<std::string, double> handledIn(const Json::Value& status) {
  std::map<std::string, double> handled;
  for (const Json::Value& module : common::arrayAt(member(status, "modules"), "modules")) {
    handled[text(module, "id")] = handledBy(module);
  }
  return handled;
}

/// Measured by the agent's own clock: how long its answers take does not matter.
void addRates(Json::Value& status, const Json::Value& before) {
  const bool isSame = text(before, "pid") == text(status, "pid");
  const double elapsed = isSame ? seconds(status, "uptime") - seconds(before, "uptime") : 0;
  const auto then = elapsed > 0 ? handledIn(before) : std::map<std::string, double>();
  static_cast<void>(handledIn(status));  // there is an array of objects
  for (Json::Value& module : status["modules"]) {
    const auto known = then.find(text(module, "id"));
    const double more = known != then.end() ? handledBy(module) - known->second : -1;
    // Fewer than before are those of another module.
    module["handledPerSecond"] = more >= 0 ? Json::Value(more / elapsed) : Json::Value();
  }
}

}  // namespace

Json::Value topDocument(Json::Value status, Json::Value pending, Json::Value slow,
                        const Json::Value& before) {
  const Json::Value nothing(Json::objectValue);
  addRates(status, before.isNull() ? nothing : part(before, "status"));
  Json::Value document(Json::objectValue);
  document["status"] = std::move(status);
  document["pending"] = std::move(pending);
  document["slow"] = std::move(slow);
  return document;
}

}  // namespace qov::ctl
