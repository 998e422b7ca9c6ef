#include "modules/common/controls.h"
#include "modules/common/json_object.h"
#include "tools/qovctl/agent_parts.h"
#include "tools/qovctl/fleet_agents.h"
#include "tools/qovctl/streams.h"

namespace qov::ctl {
namespace {

std::string modulesOf(const AgentStatus& status) {
  std::string all;
  for (const auto& [id, name] : status.modules) {
    all += (all.empty() ? "" : ", ") + std::to_string(id) + " " + name;
  }
  return all;
}

std::string cellText(const std::string& text, std::size_t most) {
  return text.empty() ? "-" : startOf(common::withoutControls(text), most);
}

std::string stateOf(const AgentStatus& status) {
  if (!status.fault.empty()) {
    return "unknown";
  }
  return status.online ? "online" : "offline";
}

void printTable(const std::map<std::string, AgentStatus>& agents) {
  std::vector<Row> rows{{"agent", "state", "since", "version", "modules"}};
  for (const auto& [agent, status] : agents) {
    rows.push_back({agentText(agent), stateOf(status), cellText(status.since, 40),
                    cellText(status.version, 40), cellText(modulesOf(status), 1000)});
  }
  print(lines(rows));
}

Json::Value agentJson(const std::string& agent, const AgentStatus& status) {
  Json::Value json(Json::objectValue);
  json["agent"] = agent;
  json["state"] = stateOf(status);
  if (!status.fault.empty()) {
    json["fault"] = status.fault;
    return json;
  }
  json["since"] = status.since;
  json["version"] = status.version;
  json["modules"] = Json::Value(Json::arrayValue);
  for (const auto& [id, name] : status.modules) {
    Json::Value module(Json::objectValue);
    module["id"] = id;
    module["name"] = name;
    json["modules"].append(module);
  }
  return json;
}

}  // namespace

void listFleet(const FleetOptions& options) {
  Broker broker(options.broker);
  const auto agents = knownAgents(broker, options);
  if (agents.empty() && !hasWildcards(options.agents)) {
    throw unknownAgents(options);
  }
  if (options.json) {
    for (const auto& [agent, status] : agents) {
      print(common::jsonLine(agentJson(agent, status)) + "\n");
    }
  } else {
    printTable(agents);
  }
  std::size_t bad = 0;
  for (const auto& [agent, status] : agents) {
    if (!status.fault.empty()) {
      complain(agent + ": bad status document: " + status.fault);
      ++bad;
    }
  }
  if (bad > 0) {
    throw Failure(kBadData, std::to_string(bad) + " of " + std::to_string(agents.size()) +
                                " status documents are bad");
  }
}

}  // namespace qov::ctl
