#include "tools/qovctl/fleet_answers.h"

#include <array>
#include <cstdio>

#include "modules/common/controls.h"
#include "modules/common/json_object.h"
#include "tools/qovctl/failure.h"
#include "tools/qovctl/fleet_agents.h"
#include "tools/qovctl/streams.h"

namespace qov::ctl {
namespace {

/// Characters of an answer in a table of several.
constexpr std::size_t kMostOfAnswer = 200;

constexpr std::array kResults{Outcome::kAnswered,     Outcome::kRefused,  Outcome::kBad,
                              Outcome::kNotDelivered, Outcome::kNoAnswer, Outcome::kOffline};

std::string millisecondsText(double milliseconds) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f", milliseconds);
  return milliseconds < 0 ? "-" : text.data();
}

void printJson(const Outcome& outcome) {
  Json::Value json(Json::objectValue);
  json["agent"] = outcome.agent;
  json["result"] = outcome.result;
  if (outcome.milliseconds >= 0) {
    json["ms"] = outcome.milliseconds;
  }
  if (!outcome.message.isNull()) {
    json["message"] = outcome.message;
  } else if (!outcome.text.empty()) {
    json["fault"] = outcome.text;
  }
  print(common::jsonLine(json) + "\n");
  finishOutput();
}

}  // namespace

void Answers::add(const Outcome& outcome) {
  ++counts_[outcome.result];
  ++agents_;
  if (json_) {
    printJson(outcome);
    return;
  }
  const std::string text = common::withoutControls(outcome.text);
  rows_[outcome.agent] = {agentText(outcome.agent), outcome.result,
                          millisecondsText(outcome.milliseconds),
                          several_ ? startOf(text, kMostOfAnswer) : text};
}

void Answers::printTable() const {
  if (json_) {
    return;
  }
  std::vector<Row> table{{"agent", "result", "ms", "answer"}};
  for (const auto& [agent, row] : rows_) {
    table.push_back(row);
  }
  std::string summary = std::to_string(agents_) + (agents_ == 1 ? " agent: " : " agents: ");
  const char* between = "";
  for (const char* const result : kResults) {
    if (const auto found = counts_.find(result); found != counts_.end()) {
      summary += between + std::to_string(found->second) + " " + result;
      between = ", ";
    }
  }
  print(lines(table) + summary + "\n");
}

void Answers::check() const {
  const auto answered = counts_.find(Outcome::kAnswered);
  const std::size_t missing = agents_ - (answered != counts_.end() ? answered->second : 0);
  if (missing > 0) {
    throw Failure(kIncomplete, std::to_string(missing) + " of " + std::to_string(agents_) +
                                   " agents have not answered");
  }
}

}  // namespace qov::ctl
