#include "tools/qovctl/fleet_agents.h"

#include <fnmatch.h>

#include <algorithm>

#include "modules/common/controls.h"
#include "modules/common/json_object.h"

namespace qov::ctl {
namespace {

using Clock = Broker::Clock;

constexpr std::string_view kRoot = "qov/";
/// One with 255 modules of long names has a tenth.
constexpr std::size_t kMostOfDocument = std::size_t{256} << 10U;
/// Of all that are kept.
constexpr std::size_t kMostOfDocuments = std::size_t{256} << 20U;

/// The member as a text; empty if it is missing.
std::string optionalText(const Json::Value& object, const char* key) {
  return object.isMember(key) ? common::textAt(object[key], key) : "";
}

AgentStatus readStatus(std::string_view document) {
  if (document.size() > kMostOfDocument) {
    throw common::BadJson("", std::to_string(document.size()) + " bytes; " +
                                  std::to_string(kMostOfDocument) + " at most");
  }
  // A later version may tell more.
  const Json::Value json = common::parseJson(document);
  if (!json.isObject() || !json["online"].isBool()) {
    throw common::BadJson("online", "neither true nor false");
  }
  AgentStatus status;
  status.online = json["online"].asBool();
  status.version = optionalText(json, "version");
  status.since = optionalText(json, "since");
  if (json.isMember("modules")) {
    for (const Json::Value& module : common::arrayAt(json["modules"], "modules")) {
      if (!module.isObject()) {
        throw common::BadJson("modules", "one is no object");
      }
      status.modules.emplace_back(common::unsignedAt(module["id"], "modules.id", 255),
                                  optionalText(module, "name"));
    }
  }
  return status;
}

/// Keeps the documents, of a bounded size.
class Documents {
 public:
  void take(const Delivery& delivery, const std::string& pattern) {
    const auto topic = agentTopicOf(delivery.topic);
    if (!topic || topic->rest != std::vector<std::string>{"status"} ||
        !matches(pattern, topic->agent)) {
      return;
    }
    // What was retained has been deleted.
    if (delivery.payload.empty()) {
      agents_.erase(topic->agent);
      return;
    }
    bytes_ += sizeof(AgentStatus) + delivery.topic.size() + delivery.payload.size();
    if (bytes_ > kMostOfDocuments) {
      throw Failure(kBadData, "the status documents take more than " +
                                  std::to_string(kMostOfDocuments >> 20U) +
                                  " MiB; a pattern asks for part of the agents");
    }
    agents_[topic->agent] = agentStatusOf(delivery.payload);
  }
  bool has(const std::string& agent) const { return agents_.count(agent) > 0; }
  std::map<std::string, AgentStatus>& agents() { return agents_; }

 private:
  std::map<std::string, AgentStatus> agents_;
  std::size_t bytes_ = 0;
};

}  // namespace

std::optional<AgentTopic> agentTopicOf(std::string_view topic) {
  if (topic.substr(0, kRoot.size()) != kRoot) {
    return std::nullopt;
  }
  std::vector<std::string> parts;
  for (std::size_t at = kRoot.size(); at <= topic.size();) {
    const std::size_t end = std::min(topic.find('/', at), topic.size());
    parts.emplace_back(topic.substr(at, end - at));
    at = end + 1;
  }
  if (parts.size() < 3) {
    return std::nullopt;
  }
  AgentTopic found{parts[0] + "/" + parts[1], {}};
  found.rest.assign(parts.begin() + 2, parts.end());
  return found;
}

bool matches(const std::string& pattern, const std::string& agent) {
  return ::fnmatch(pattern.c_str(), agent.c_str(), FNM_PATHNAME) == 0;
}

bool hasWildcards(std::string_view pattern) {
  return pattern.find_first_of("*?[\\") != std::string_view::npos;
}

std::string filterFor(const std::string& pattern, const std::string& rest) {
  const std::size_t slash = pattern.find('/');
  const std::string node = pattern.substr(0, slash);
  const std::string process = pattern.substr(slash + 1);
  return std::string(kRoot) + (hasWildcards(node) ? "+" : node) + "/" +
         (hasWildcards(process) ? "+" : process) + "/" + rest;
}

AgentStatus agentStatusOf(std::string_view document) {
  try {
    return readStatus(document);
  } catch (const common::BadJson& bad) {
    AgentStatus status;
    status.fault = bad.what();
    return status;
  }
}

std::map<std::string, AgentStatus> knownAgents(Broker& broker, const FleetOptions& options) {
  // Of messages that it has to see acknowledged a broker keeps a thousand for a client, and drops
  // the rest; others it just writes.
  constexpr int kAtMostOnce = 0;
  const std::string filter = filterFor(options.agents, "status");
  broker.subscribe(filter, kAtMostOnce);
  const bool isOne = !hasWildcards(options.agents);
  const auto quiet =
      std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options.quiet));
  Documents documents;
  auto end = Clock::now() + quiet;
  while (Clock::now() < end && !(isOne && documents.has(options.agents))) {
    broker.wait(end);
    if (const auto delivery = broker.take()) {
      documents.take(*delivery, options.agents);
      // Changes do not keep it waiting: in a large fleet there are some all the time.
      if (delivery->retained) {
        end = Clock::now() + quiet;
      }
    }
  }
  broker.unsubscribe(filter);
  return std::move(documents.agents());
}

Failure unknownAgents(const FleetOptions& options) {
  return {kNoConnection,
          "no agent " + options.agents + " is known to the broker " + options.broker.address};
}

std::string startOf(const std::string& text, std::size_t most) {
  std::size_t end = std::min(text.size(), most);
  while (end < text.size() && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80) {
    --end;
  }
  return text.substr(0, end) + (end < text.size() ? "..." : "");
}

std::string agentText(const std::string& agent) {
  constexpr std::size_t kMost = 100;
  return startOf(common::withoutControls(agent), kMost);
}

}  // namespace qov::ctl
