#include "tools/qovctl/agent_text.h"

#include "modules/common/controls.h"
#include "modules/common/json_object.h"
#include "tools/qovctl/each_line.h"

namespace qov::ctl {
namespace {

/// What is not 0, as in "noRoom 2, stopped 1".
std::string counts(const Json::Value& object) {
  std::string all;
  for (const std::string& key : object.getMemberNames()) {
    if (const std::string count = text(object, key.c_str()); count != "0") {
      all += (all.empty() ? "" : ", ") + common::withoutControls(key) + " " + count;
    }
  }
  return all.empty() ? "-" : all;
}

Row moduleRow(const Json::Value& module) {
  const Json::Value queue = part(module, "queue");
  const Json::Value pending = part(module, "pending");
  return {text(module, "id"),
          text(module, "name"),
          text(module, "state"),
          text(queue, "blocks"),
          text(queue, "highestBlocks"),
          text(module, "busy") + "/" + text(module, "workers"),
          text(part(module, "handled"), "count"),
          text(pending, "count"),
          spanText(seconds(pending, "oldest")),
          text(module, "timedOut"),
          text(module, "refused"),
          counts(part(module, "dropped"))};
}

const Json::Value& modulesOf(const Json::Value& document) {
  return common::arrayAt(member(document, "modules"), "modules");
}

}  // namespace

std::vector<Row> moduleTable(const Json::Value& status) {
  std::vector<Row> rows{{"id", "module", "state", "queue", "highest", "busy", "handled", "pending",
                         "oldest", "timed out", "refused", "dropped"}};
  for (const Json::Value& module : modulesOf(status)) {
    rows.push_back(moduleRow(module));
  }
  return rows;
}

std::vector<Row> linkTable(const Json::Value& status) {
  std::vector<Row> rows{{"link", "state", "for", "connections", "last error"}};
  const Json::Value& links = member(status, "links");
  for (const Json::Value& link : links.isArray() ? links : Json::Value(Json::arrayValue)) {
    const std::string error = text(link, "lastError");
    rows.push_back(
        {text(link, "endpoint"), text(link, "connected") == "true" ? "connected" : "not connected",
         spanText(seconds(link, "since")), text(link, "connections"), error.empty() ? "-" : error});
  }
  return rows;
}

std::string statusText(const Json::Value& status) {
  const Json::Value configuration = part(status, "configuration");
  const Json::Value log = part(status, "log");
  const bool changed = text(configuration, "changedSinceStart") == "true";
  const std::string agent = lines({
      {"process", text(status, "process") + ", number " + text(status, "number") + ", pid " +
                      text(status, "pid")},
      {"version", text(status, "version")},
      {"up", spanText(seconds(status, "uptime")) + ", since " + text(status, "started")},
      {"configuration",
       text(configuration, "file") + " of " + text(configuration, "inForce") +
           (changed ? "; changed since the start, at " + text(configuration, "modified") : "")},
      {"log", text(log, "file") + ", level " + text(log, "level")},
      {"clients", counts(part(status, "clients"))},
  });
  const std::vector<Row> links = linkTable(status);
  return agent + "\n" + lines(moduleTable(status)) +
         (links.size() > 1 ? "\n" + lines(links) : std::string());
}

std::string modulesText(const Json::Value& list) {
  std::vector<Row> rows{{"id", "module", "state"}};
  for (const Json::Value& module : modulesOf(list)) {
    rows.push_back({text(module, "id"), text(module, "name"), text(module, "state")});
  }
  return lines(rows);
}

std::string metricsText(const Json::Value& answer) {
  return eachLine(common::textAt(answer["metrics"], "metrics"), &common::withoutControls);
}

}  // namespace qov::ctl
