// The first byte of the input says which command of `qovctl fleet` runs and how; the rest is what
// other clients of its broker send (played_broker.h).
#include <algorithm>
#include <array>
#include <cstdlib>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <tuple>
#include <vector>

#include "modules/common/controls.h"
#include "modules/common/json_object.h"
#include "modules/common/message_payload.h"
#include "modules/common/octets.h"
#include "tests/support/fuzz.h"
#include "tests/tools/fuzz/captured_stream.h"
#include "tests/tools/fuzz/played_broker.h"
#include "tools/qovctl/failure.h"
#include "tools/qovctl/fleet_options.h"

using namespace qov;
using test::BrokerMessage;
using test::PlayedBroker;
using test::require;

namespace {

enum Command : unsigned int { kList, kWatch, kAsk };

struct Pattern {
  const char* text;
  bool (*has)(const std::string& agent);
};
constexpr std::array<Pattern, 3> kPatterns{
    {{"*/*", [](const std::string&) { return true; }},
     {"n1/a", [](const std::string& agent) { return agent == "n1/a"; }},
     {"n[12]/*", [](const std::string& agent) {
        return agent.rfind("n1/", 0) == 0 || agent.rfind("n2/", 0) == 0;
      }}}};

struct How {
  Command command;
  bool json;
  Pattern pattern;
};

/// The levels of a topic qov/NODE/PROCESS/..., the first two as one; empty for another topic.
std::vector<std::string> levelsOf(const std::string& topic) {
  std::vector<std::string> levels(1);
  for (const char character : topic) {
    if (character == '/') {
      levels.emplace_back();
    } else {
      levels.back() += character;
    }
  }
  if (levels.size() < 4 || levels[0] != "qov") {
    return {};
  }
  levels.erase(levels.begin());
  levels[0] += "/" + levels[1];
  levels.erase(levels.begin() + 1);
  return levels;
}

/// The agents that have told of themselves, with their last documents.
using Agents = std::map<std::string, std::string>;

Agents agentsIn(const std::vector<BrokerMessage>& messages, const Pattern& pattern) {
  Agents agents;
  for (const BrokerMessage& message : messages) {
    const auto levels = levelsOf(message.topic);
    if (levels.size() != 2 || levels[1] != "status" || !pattern.has(levels[0])) {
      continue;
    }
    if (message.payload.empty()) {
      agents.erase(levels[0]);
    } else {
      agents[levels[0]] = message.payload;
    }
  }
  return agents;
}

/// Null for what is none.
Json::Value jsonIn(const std::string& text) {
  try {
    return common::parseJson(text);
  } catch (const common::BadJson&) {
    return {};
  }
}

bool mayHaveText(const Json::Value& object, const char* key) {
  return !object.isMember(key) || object[key].isString();
}

/// By a reader of its own.
const char* stateOf(const std::string& document) {
  const Json::Value json = jsonIn(document);
  if (!json.isObject() || !json["online"].isBool() || !mayHaveText(json, "version") ||
      !mayHaveText(json, "since")) {
    return "unknown";
  }
  const Json::Value modules = json.get("modules", Json::Value(Json::arrayValue));
  const bool areModules =
      modules.isArray() &&
      std::all_of(modules.begin(), modules.end(), [](const Json::Value& module) {
        constexpr unsigned int kMostId = 255;
        return module.isObject() && module["id"].isUInt() &&
               module["id"].type() != Json::realValue && module["id"].asUInt() <= kMostId &&
               mayHaveText(module, "name");
      });
  return !areModules ? "unknown" : json["online"].asBool() ? "online" : "offline";
}

bool isBytes(const BrokerMessage& message) {
  return message.contentType == "application/vnd.qov.message";
}

/// The message inside, without a number if it leaves that out: each reader makes another one. Null
/// for what is none.
Json::Value messageIn(const BrokerMessage& message) try {
  const auto package = isBytes(message) ? common::messageOfBytes(message.payload)
                                        : common::messageOfJson(message.payload);
  Json::Value json = common::parseJson(common::jsonOfMessage(*package));
  if (!isBytes(message) && !jsonIn(message.payload)["head"].isMember("sn")) {
    json["head"].removeMember("sn");
  }
  return json;
} catch (const std::runtime_error&) {
  return {};
}

bool isSameMessage(Json::Value shown, const Json::Value& expected) {
  if (!expected.isNull() && !expected["head"].isMember("sn")) {
    shown["head"].removeMember("sn");
  }
  return shown == expected;
}

/// The parts of the line that shows it as JSON.
Json::Value answerIn(const BrokerMessage& message) {
  Json::Value answer;
  const Json::Value json = isBytes(message) ? Json::Value() : jsonIn(message.payload);
  const Json::Value error = json.isObject() ? json["error"] : Json::Value();
  if (error.isObject() && !error.empty()) {
    answer["result"] = "refused";
    if (error["code"].isString() && error["text"].isString()) {
      answer["fault"] = common::withoutControls(error["code"].asString()) + ": " +
                        common::withoutControls(error["text"].asString());
    }
    return answer;
  }
  answer["message"] = messageIn(message);
  answer["result"] = answer["message"].isNull() ? "bad answer" : "answered";
  return answer;
}

/// What comes of asking the agent: its first message with the correlation data of the request.
Json::Value outcomeOf(const Agents::value_type& agent, const PlayedBroker& broker) {
  Json::Value outcome;
  const std::vector<std::string> levels{agent.first, "request", "20"};
  const auto request =
      std::find_if(broker.requests().begin(), broker.requests().end(),
                   [&](const test::BrokerRequest& each) { return levelsOf(each.topic) == levels; });
  const bool isAsked = request != broker.requests().end();
  require(isAsked == (stateOf(agent.second) != std::string_view("offline")),
          "all are asked but who is offline");
  if (!isAsked) {
    outcome["result"] = "offline";
    return outcome;
  }
  const std::vector<BrokerMessage>& messages = broker.delivered();
  const std::size_t end = request->refused.value_or(messages.size());
  for (std::size_t i = request->begin; i < end; ++i) {
    const auto from = levelsOf(messages[i].topic);
    if (!from.empty() && from[0] == agent.first &&
        messages[i].correlation == request->correlation) {
      return answerIn(messages[i]);
    }
  }
  outcome["result"] = request->refused ? "not delivered" : "no answer";
  return outcome;
}

/// The events in their order, without those that came again.
std::vector<BrokerMessage> eventsIn(const std::vector<BrokerMessage>& messages,
                                    const Pattern& pattern) {
  std::vector<BrokerMessage> events;
  std::set<std::tuple<std::string, std::string, std::string>> seen;
  for (const BrokerMessage& message : messages) {
    const auto levels = levelsOf(message.topic);
    if (levels.size() != 4 || levels[1] != "event" || !pattern.has(levels[0])) {
      continue;
    }
    const bool hasName = !message.number.empty() && !message.outbox.empty();
    if (!hasName || seen.emplace(levels[0], message.number, message.outbox).second) {
      events.push_back(message);
    }
  }
  return events;
}

void checkPrintable(std::string_view text) {
  require(common::isUtf8(text), "what is printed is UTF-8");
  constexpr std::array kSteering{"\u061c", "\u200e", "\u200f", "\u202a", "\u202b", "\u202c",
                                 "\u202d", "\u202e", "\u2066", "\u2067", "\u2068", "\u2069"};
  for (const char* const each : kSteering) {
    require(text.find(each) == std::string_view::npos, "no direction of writing is set");
  }
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    require((byte >= 0x20 && byte != 0x7F) || byte == '\n', "no control character is printed");
    require(byte != 0xC2 || static_cast<unsigned char>(text[i + 1]) >= 0xA0,
            "no control character of two bytes is printed");
  }
}

std::vector<std::string> linesOf(std::string text) {
  checkPrintable(text);
  require(text.empty() || text.back() == '\n', "every line has an end");
  std::vector<std::string> lines;
  while (!text.empty()) {
    lines.push_back(test::takeLine(text));
  }
  return lines;
}

struct Run {
  std::vector<std::string> out;
  std::vector<std::string> err;
  std::optional<ctl::ExitCode> failure;
};

void runCommand(const How& how) {
  ctl::FleetOptions options;
  options.broker.address = "broker";
  options.agents = how.pattern.text;
  options.json = how.json;
  switch (how.command) {
    case kList:
      return ctl::listFleet(options);
    case kWatch:
      return ctl::watchFleet(options, 1);
    default: {
      CQOV_MsgPackage request;
      request.head().type_ = QOVMsgHead::kRequest;
      return ctl::askFleet(options, 20, request);
    }
  }
}

Run run(const How& how) {
  std::optional<ctl::ExitCode> failure;
  std::string out;
  std::string err;
  std::optional<std::string> thrown;
  {
    const test::CapturedStream output(stdout);
    const test::CapturedStream errors(stderr);
    try {
      runCommand(how);
    } catch (const ctl::Failure& why) {
      failure = why.code();
      ctl::complain(why.what());
    } catch (const std::exception& other) {
      thrown = other.what();
    }
    out = output.text();
    err = errors.text();
  }
  require(!thrown, ("a command fails by a Failure alone, not by: " + thrown.value_or("")).c_str());
  return {linesOf(out), linesOf(err), failure};
}

/// Whether `shown` is the text, as a number where it is one.
bool isNumberOf(const std::string& text, const Json::Value& shown) {
  const int base = text.find_first_of("xX") == std::string::npos ? 10 : 16;
  return shown.isUInt64() ? std::strtoull(text.c_str(), nullptr, base) == shown.asUInt64()
                          : shown == text;
}

void checkEvent(const Json::Value& line, const BrokerMessage& event) {
  const auto levels = levelsOf(event.topic);
  require(line["agent"] == levels[0] && isNumberOf(levels[2], line["module"]) &&
              isNumberOf(levels[3], line["opc"]) && isNumberOf(event.number, line["number"]) &&
              line["outbox"] == event.outbox,
          "an event is told of who has sent it");
  const Json::Value message = messageIn(event);
  require(line.isMember("fault") == message.isNull() && isSameMessage(line["message"], message),
          "an event has its own message, or why it has none");
}

void checkState(const Json::Value& line, const std::string& document) {
  const std::string state = stateOf(document);
  require(line["state"] == state && line.isMember("fault") == (state == "unknown"),
          "the state is that of the document");
  if (state == "unknown") {
    return;
  }
  const Json::Value json = jsonIn(document);
  Json::Value modules(Json::arrayValue);
  for (const Json::Value& module : json["modules"]) {
    Json::Value& each = modules.append(Json::objectValue);
    each["id"] = module["id"];
    each["name"] = module.get("name", "");
  }
  require(line["since"] == json.get("since", "") && line["version"] == json.get("version", "") &&
              line["modules"] == modules,
          "an agent is as its document tells");
}

void checkAnswer(const Json::Value& line, const Json::Value& expected) {
  require(line["result"] == expected["result"] &&
              isSameMessage(line["message"], expected["message"]) &&
              (!expected.isMember("fault") || line["fault"] == expected["fault"]),
          "an answer is the agent's own");
  const std::string result = line["result"].asString();
  const bool hasCome = result == "answered" || result == "refused" || result == "bad answer";
  require(line.isMember("ms") == hasCome, "an answer has its time");
}

void checkJson(const Run& run, const How& how, const PlayedBroker& broker, const Agents& agents) {
  const auto events = eventsIn(broker.delivered(), how.pattern);
  auto event = events.begin();
  std::set<std::string> shown;
  for (const std::string& line : run.out) {
    const Json::Value json = common::parseJson(line);
    if (how.command == kWatch) {
      checkEvent(json, *event++);
      continue;
    }
    const std::string agent = json["agent"].asString();
    const auto found = agents.find(agent);
    require(found != agents.end() && shown.insert(agent).second, "each agent comes once");
    if (how.command == kAsk) {
      checkAnswer(json, outcomeOf(*found, broker));
    } else {
      checkState(json, found->second);
    }
  }
}

std::size_t badDocumentsIn(const Agents& agents) {
  return static_cast<std::size_t>(std::count_if(agents.begin(), agents.end(), [](const auto& each) {
    return stateOf(each.second) == std::string_view("unknown");
  }));
}

/// How the command has to end.
std::optional<ctl::ExitCode> failureOf(const How& how, const PlayedBroker& broker,
                                       const Agents& agents) {
  const bool needsAgents =
      how.command == kAsk || (how.command == kList && how.pattern.text == std::string_view("n1/a"));
  if (broker.hasLost() || (needsAgents && agents.empty())) {
    return ctl::kNoConnection;
  }
  if (how.command == kList && badDocumentsIn(agents) > 0) {
    return ctl::kBadData;
  }
  const bool isIncomplete =
      how.command == kAsk && !std::all_of(agents.begin(), agents.end(), [&](const auto& each) {
        return outcomeOf(each, broker)["result"] == "answered";
      });
  return isIncomplete ? std::optional(ctl::kIncomplete) : std::nullopt;
}

void checkRun(const Run& run, const How& how, const PlayedBroker& broker) {
  const Agents agents = agentsIn(broker.firstDelivered(), how.pattern);
  require(run.failure == failureOf(how, broker, agents), "the status tells what has come");
  const std::size_t bad = run.failure == ctl::kBadData ? badDocumentsIn(agents) : 0;
  require(run.err.size() == bad + (run.failure ? 1 : 0), "what is wrong has a line each");
  // Beside those of events or agents.
  std::size_t more = 0;
  std::size_t most = agents.size();
  if (how.command == kWatch) {
    most = eventsIn(broker.delivered(), how.pattern).size();
    require(run.out.size() == most, "each event has a line");
  } else if (!how.json && !(agents.empty() && run.failure == ctl::kNoConnection)) {
    more = how.command == kAsk ? 2 : 1;
  }
  require(run.failure == ctl::kNoConnection ? run.out.size() <= most + more
                                            : run.out.size() == most + more,
          "each event or agent has a line");
  if (how.json) {
    checkJson(run, how, broker, agents);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  test::silence();
  constexpr std::size_t kMost = 2000;
  if (size > kMost) {
    return 0;  // so many agents that some are asked later
  }
  const unsigned int choice = size == 0 ? 0U : *data;
  const How how{static_cast<Command>((choice & 3U) % 3), (choice & 4U) != 0,
                kPatterns[(choice >> 3U) % kPatterns.size()]};
  PlayedBroker broker(size == 0 ? "" : test::textOf(data + 1, size - 1));
  checkRun(run(how), how, broker);
  return 0;
}
