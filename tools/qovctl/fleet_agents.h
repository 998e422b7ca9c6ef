#ifndef QOV_TOOLS_QOVCTL_FLEET_AGENTS_H
#define QOV_TOOLS_QOVCTL_FLEET_AGENTS_H

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/qovctl/failure.h"
#include "tools/qovctl/fleet_broker.h"
#include "tools/qovctl/fleet_options.h"

namespace qov::ctl {

/// A topic of an agent: qov/NODE/PROCESS/ and more.
struct AgentTopic {
  std::string agent;  ///< NODE/PROCESS
  std::vector<std::string> rest;
};
/// Nothing for another topic.
std::optional<AgentTopic> agentTopicOf(std::string_view topic);

/// Whether the agent's name is one of those that `pattern` stands for.
bool matches(const std::string& pattern, const std::string& agent);
/// Whether `pattern` stands for more than the name that it is.
bool hasWildcards(std::string_view pattern);
/// A filter for the topics qov/NODE/PROCESS/`rest` of these agents, and perhaps of others.
std::string filterFor(const std::string& pattern, const std::string& rest);

/// What an agent tells of itself.
struct AgentStatus {
  std::string fault;  ///< why its document is none; the rest is empty then
  bool online = false;
  std::string version;
  std::string since;
  std::vector<std::pair<unsigned int, std::string>> modules;
};

/// Reads a status document.
AgentStatus agentStatusOf(std::string_view document);

/// The agents that options.agents names and the broker knows, by their names. Of one that is named
/// in full no more than its document is waited for.
std::map<std::string, AgentStatus> knownAgents(Broker& broker, const FleetOptions& options);
/// What to say when there are none.
Failure unknownAgents(const FleetOptions& options);

// For tables, in which one long value would widen all lines.

/// The first `most` bytes of UTF-8 text, without half a character; "..." behind it if there is
/// more.
std::string startOf(const std::string& text, std::size_t most);
/// The agent's name, control characters in hexadecimal form.
std::string agentText(const std::string& agent);

}  // namespace qov::ctl

#endif
