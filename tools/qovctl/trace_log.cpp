#include "tools/qovctl/trace_log.h"

#include <algorithm>
#include <array>
#include <limits>
#include <string_view>

#include "modules/common/controls.h"
#include "modules/common/json_object.h"
#include "tools/qovctl/numbers.h"

namespace qov::ctl {
namespace {

constexpr unsigned int kHighestModule = 255;
constexpr std::int64_t kHighest = std::numeric_limits<std::int64_t>::max();

/// In the order of TraceStep::Kind.
constexpr std::array<std::string_view, 7> kKinds{"send",   "dispatch", "begin", "end",
                                                 "answer", "time-out", "drop"};

/// The order of the fields of a step.
constexpr std::array<std::string_view, 10> kFields{"time", "thread", "step", "module", "reason",
                                                   "type", "from",   "to",   "serial", "operation"};

TraceStep::Kind kindOf(const Json::Value& json, const std::string& place) {
  const std::string name = common::textAt(json, place);
  const auto* const found = std::find(kKinds.begin(), kKinds.end(), name);
  if (found == kKinds.end()) {
    throw common::BadJson(place, "no step of a message");
  }
  return static_cast<TraceStep::Kind>(found - kKinds.begin());
}

/// The values of one step, in the order of kFields.
class Values {
 public:
  Values(const Json::Value& json, std::string place)
      : json_(common::arrayAt(json, place)), place_(std::move(place)) {
    if (json_.size() < kFields.size()) {
      throw common::BadJson(place_, "too few values");
    }
  }

  const Json::Value& next() { return json_[index_++]; }
  std::int64_t time() { return common::signedAt(next(), place_, 0, kHighest); }
  TraceStep::Kind kind() { return kindOf(next(), place_); }
  std::string reason() {
    const Json::Value& value = next();
    return value.isNull() ? "" : common::withoutControls(common::textAt(value, place_));
  }
  std::uint64_t number(std::uint64_t max) { return common::unsignedAt(next(), place_, max); }
  unsigned int byte() { return static_cast<unsigned int>(number(kHighestModule)); }

 private:
  const Json::Value& json_;
  const std::string place_;
  Json::ArrayIndex index_ = 0;
};

TraceStep stepOf(const Json::Value& json, const std::string& place) {
  Values values(json, place);
  TraceStep step;
  step.time = values.time();
  step.thread = values.time();
  step.kind = values.kind();
  step.module = values.byte();
  step.reason = values.reason();
  step.type = values.byte();
  step.from = values.byte();
  step.to = values.byte();
  step.serial =
      static_cast<std::uint32_t>(values.number(std::numeric_limits<std::uint32_t>::max()));
  step.operation = values.number(std::numeric_limits<std::uint64_t>::max());
  return step;
}

void checkFields(const Json::Value& fields) {
  const Json::Value& names = common::arrayAt(fields, "fields");
  for (std::size_t i = 0; i < kFields.size(); ++i) {
    if (names[static_cast<Json::ArrayIndex>(i)] != std::string(kFields[i])) {
      throw common::BadJson("fields", "those of an agent of another version");
    }
  }
}

}  // namespace

TraceLog::TraceLog(const Json::Value& start)
    : process_(common::withoutControls(common::textAt(start["process"], "process"))),
      pid_(common::signedAt(start["pid"], "pid", 0, kHighest)) {
  for (const Json::Value& module : common::arrayAt(start["modules"], "modules")) {
    const auto id =
        static_cast<unsigned int>(common::unsignedAt(module["id"], "id", kHighestModule));
    modules_[id] = common::withoutControls(common::textAt(module["name"], "name"));
  }
}

void TraceLog::add(const Json::Value& part) {
  checkFields(part["fields"]);
  const std::uint64_t lost =
      common::unsignedAt(part["lost"], "lost", std::numeric_limits<std::uint64_t>::max());
  lost_ += lost;
  gap_ = gap_ || lost > 0;
  addSteps(common::arrayAt(part["steps"], "steps"));
  // What never gets on is no agent.
  more_ = part["more"] == true && !part["steps"].empty();
  const Json::Value& threads = part["threads"];
  for (const std::string& id :
       threads.isObject() ? threads.getMemberNames() : std::vector<std::string>()) {
    const auto number = numberOf(id, static_cast<std::uint64_t>(kHighest));
    if (number) {
      threads_.emplace(static_cast<std::int64_t>(*number),
                       common::withoutControls(common::textAt(threads[id], "threads")));
    }
  }
}

void TraceLog::addSteps(const Json::Value& steps) {
  for (Json::ArrayIndex i = 0; i < steps.size(); ++i) {
    TraceStep step = stepOf(steps[i], common::elementPlace("steps", i));
    if (sections_.empty() || gap_) {
      sections_.push_back({step.time, step.time});
      gap_ = false;
    }
    Section& section = sections_.back();
    section.begin = std::min(section.begin, step.time);
    section.end = std::max(section.end, step.time);
    step.section = sections_.size() - 1;
    steps_.push_back(std::move(step));
  }
}

void TraceLog::endAt(std::int64_t time) {
  if (!sections_.empty() && !gap_ && !more_) {
    sections_.back().end = std::max(sections_.back().end, time);
  }
}

std::string TraceLog::module(unsigned int id) const {
  const auto found = modules_.find(id);
  return std::to_string(id) + (found != modules_.end() ? " " + found->second : "");
}

std::string TraceLog::thread(std::int64_t id) const {
  const auto found = threads_.find(id);
  return found != threads_.end() ? found->second : "thread " + std::to_string(id);
}

}  // namespace qov::ctl
