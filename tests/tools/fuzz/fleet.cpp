// The first byte of the input says which command of `qovctl fleet` runs and how; the rest is what
// other clients of its broker send (played_broker.h).
#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <tuple>
#include <vector>

#include "modules/common/json_object.h"
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

/// The agents that have told of themselves.
std::set<std::string> agentsIn(const std::vector<BrokerMessage>& messages, const Pattern& pattern) {
  std::set<std::string> agents;
  for (const BrokerMessage& message : messages) {
    const auto levels = levelsOf(message.topic);
    if (levels.size() != 2 || levels[1] != "status" || !pattern.has(levels[0])) {
      continue;
    }
    if (message.payload.empty()) {
      agents.erase(levels[0]);
    } else {
      agents.insert(levels[0]);
    }
  }
  return agents;
}

/// How many events there are, without those that came again.
std::size_t eventsIn(const std::vector<BrokerMessage>& messages, const Pattern& pattern) {
  std::size_t events = 0;
  std::set<std::tuple<std::string, std::string, std::string>> seen;
  for (const BrokerMessage& message : messages) {
    const auto levels = levelsOf(message.topic);
    if (levels.size() != 4 || levels[1] != "event" || !pattern.has(levels[0])) {
      continue;
    }
    const bool hasName = !message.number.empty() && !message.outbox.empty();
    events += !hasName || seen.emplace(levels[0], message.number, message.outbox).second ? 1 : 0;
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
  {
    const test::CapturedStream output(stdout);
    const test::CapturedStream errors(stderr);
    try {
      runCommand(how);
    } catch (const ctl::Failure& why) {
      failure = why.code();
      ctl::complain(why.what());
    }
    out = output.text();
    err = errors.text();
  }
  return {linesOf(out), linesOf(err), failure};
}

/// Each agent has a line, and answers are those that it has sent.
void checkJson(const Run& run, const How& how, const PlayedBroker& broker,
               const std::set<std::string>& agents) {
  std::set<std::string> shown;
  for (const std::string& line : run.out) {
    const Json::Value json = common::parseJson(line);
    const std::string agent = json["agent"].asString();
    if (how.command == kWatch) {
      require(how.pattern.has(agent) && json.isMember("message") != json.isMember("fault"),
              "an event is one of an agent that is watched, or why it is none");
      continue;
    }
    require(agents.count(agent) > 0 && shown.insert(agent).second, "each agent comes once");
    if (how.command == kAsk && json.isMember("ms")) {
      const auto& messages = broker.delivered();
      require(std::any_of(messages.begin(), messages.end(),
                          [&](const BrokerMessage& message) {
                            const auto levels = levelsOf(message.topic);
                            return !levels.empty() && levels[0] == agent &&
                                   !message.correlation.empty();
                          }),
              "an answer is the agent's own");
    }
  }
}

void checkRun(const Run& run, const How& how, const PlayedBroker& broker) {
  const std::set<std::string> agents = agentsIn(broker.firstDelivered(), how.pattern);
  if (how.json) {
    checkJson(run, how, broker, agents);
  }
  // Beside those of events or agents.
  std::size_t more = 0;
  std::size_t most = agents.size();
  if (how.command == kWatch) {
    most = eventsIn(broker.delivered(), how.pattern);
    require(run.out.size() == most, "each event has a line");
  } else if (!how.json) {
    more = how.command == kAsk ? 2 : 1;
  }
  require(run.failure == ctl::kNoConnection || !broker.hasLost(), "a lost connection is told");
  if (run.failure == ctl::kNoConnection) {
    require(run.err.size() == 1, "what has failed has a line");
    require(broker.hasLost() || (agents.empty() && run.out.empty()),
            "agents that are there are known");
    require(run.out.size() <= most + more, "what has come before has a line each");
    return;
  }
  require(run.out.size() == most + more, "each event or agent has a line");
  if (how.command == kList) {
    require(run.err.empty() || (run.failure == ctl::kBadData && run.err.size() <= most + 1),
            "a document that is none has a line");
  } else {
    require(run.failure.value_or(ctl::kIncomplete) == ctl::kIncomplete, "nothing else fails");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  test::silence();
  const unsigned int choice = size == 0 ? 0U : *data;
  const How how{static_cast<Command>((choice & 3U) % 3), (choice & 4U) != 0,
                kPatterns[(choice >> 3U) % kPatterns.size()]};
  PlayedBroker broker(size == 0 ? "" : test::textOf(data + 1, size - 1));
  checkRun(run(how), how, broker);
  return 0;
}
