#include "tools/qovctl/agent_text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <vector>

#include "tools/common/controls.h"
#include "tools/common/json_object.h"

namespace qov::ctl {
namespace {

using Row = std::vector<std::string>;

const Json::Value& member(const Json::Value& object, const char* key) {
  if (!object.isObject()) {
    throw tools::BadJson(key, "is to be a member of an object");
  }
  return object[key];
}

/// The member as a text; "-" for one that is missing.
std::string text(const Json::Value& object, const char* key) {
  const Json::Value& value = member(object, key);
  if (value.isNull() || value.isObject() || value.isArray()) {
    return "-";
  }
  return tools::withoutControls(value.asString());
}

/// The member object, empty if it is missing.
Json::Value part(const Json::Value& object, const char* key) {
  const Json::Value& value = member(object, key);
  return value.isObject() ? value : Json::Value(Json::objectValue);
}

double seconds(const Json::Value& object, const char* key) {
  const Json::Value& value = member(object, key);
  return value.isNumeric() ? value.asDouble() : 0;
}

/// Columns with two blanks between them; the last has no blanks behind it.
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

/// What is not 0, as in "noRoom 2, stopped 1".
std::string counts(const Json::Value& object) {
  std::string all;
  for (const std::string& key : object.getMemberNames()) {
    if (const std::string count = text(object, key.c_str()); count != "0") {
      all += (all.empty() ? "" : ", ") + tools::withoutControls(key) + " " + count;
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
          counts(part(module, "dropped"))};
}

const Json::Value& modulesOf(const Json::Value& document) {
  return tools::arrayAt(member(document, "modules"), "modules");
}

/// Nothing without links.
std::string linksText(const Json::Value& links) {
  if (!links.isArray() || links.empty()) {
    return {};
  }
  std::vector<Row> rows{{"link", "state", "for", "connections", "last error"}};
  for (const Json::Value& link : links) {
    const std::string error = text(link, "lastError");
    rows.push_back(
        {text(link, "endpoint"), text(link, "connected") == "true" ? "connected" : "not connected",
         spanText(seconds(link, "since")), text(link, "connections"), error.empty() ? "-" : error});
  }
  return "\n" + lines(rows);
}

std::string format(const char* pattern, long long first, long long second) {
  std::array<char, 64> bytes{};
  std::snprintf(bytes.data(), bytes.size(), pattern, first, second);
  return bytes.data();
}

}  // namespace

std::string spanText(double seconds) {
  if (seconds <= 0) {
    return "-";
  }
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
  const auto milliseconds = static_cast<long long>(seconds * 1000);
  return whole >= 1 ? format("%lld.%llds", whole, milliseconds % 1000 / 100)
                    : format("%lldms", milliseconds, 0);
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
  std::vector<Row> rows{{"id", "module", "state", "queue", "highest", "busy", "handled", "pending",
                         "oldest", "timed out", "dropped"}};
  for (const Json::Value& module : modulesOf(status)) {
    rows.push_back(moduleRow(module));
  }
  return agent + "\n" + lines(rows) + linksText(status["links"]);
}

std::string modulesText(const Json::Value& list) {
  std::vector<Row> rows{{"id", "module", "state"}};
  for (const Json::Value& module : modulesOf(list)) {
    rows.push_back({text(module, "id"), text(module, "name"), text(module, "state")});
  }
  return lines(rows);
}

}  // namespace qov::ctl
