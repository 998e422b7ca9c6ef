#include "modules/status/trace_recording.h"

#include <qovpub/qov_trace.h>

#include <array>
#include <chrono>
#include <fstream>
#include <set>
#include <string>
#include <utility>

#include "modules/status/status_document.h"

namespace qov::status {
namespace {

constexpr std::array<const char*, 10> kFields{"time", "thread", "step", "module", "reason",
                                              "type", "from",   "to",   "serial", "operation"};

/// By QOVTraceEvent::Step.
constexpr std::array<const char*, 7> kSteps{"send",   "dispatch", "begin", "end",
                                            "answer", "time-out", "drop"};

Json::Value valueOf(QOVTraceEvent::Clock::time_point time) {
  return Json::Int64{std::chrono::nanoseconds(time.time_since_epoch()).count()};
}

Json::Value fieldNames() {
  Json::Value names(Json::arrayValue);
  for (const char* name : kFields) {
    names.append(name);
  }
  return names;
}

/// In the order of kFields.
Json::Value valueOf(const QOVTraceEvent& event) {
  const bool dropped = event.step_ == QOVTraceEvent::Step::kDrop;
  Json::Value values(Json::arrayValue);
  values.append(valueOf(event.time_));
  values.append(event.thread_);
  values.append(kSteps.at(static_cast<std::size_t>(event.step_)));
  values.append(event.module_);
  values.append(dropped ? Json::Value(kDropReasons.at(static_cast<std::size_t>(event.reason_)))
                        : Json::Value());
  values.append(event.type_);
  values.append(event.smid_);
  values.append(event.rmid_);
  values.append(event.sn_);
  values.append(Json::UInt64{event.opc_});
  return values;
}

/// Empty for a thread that has ended.
std::string nameOfThread(const std::string& id) {
  std::ifstream file("/proc/self/task/" + id + "/comm");
  std::string name;
  std::getline(file, name);
  return name;
}

Json::Value namesOf(const std::set<pid_t>& threads) {
  Json::Value names(Json::objectValue);
  for (const pid_t thread : threads) {
    const std::string id = std::to_string(thread);
    if (const std::string name = nameOfThread(id); !name.empty()) {
      names[id] = name;
    }
  }
  return names;
}

}  // namespace

Recording::Recording(std::optional<std::uint8_t> module) : next_(QOVMessageTrace::start(module)) {}

void Recording::stop() {
  if (std::exchange(on_, false)) {
    QOVMessageTrace::stop();
  }
}

Json::Value Recording::read() {
  const Json::Value time = traceTimeNow();
  const QOVMessageTrace::Part part = QOVMessageTrace::read(next_, kMostSteps);
  next_ = part.next_;
  Json::Value steps(Json::arrayValue);
  std::set<pid_t> threads;
  for (const QOVTraceEvent& event : part.events_) {
    steps.append(valueOf(event));
    threads.insert(event.thread_);
  }
  Json::Value document(Json::objectValue);
  document["time"] = time;
  document["lost"] = Json::UInt64{part.lost_};
  document["fields"] = fieldNames();
  document["steps"] = std::move(steps);
  document["threads"] = namesOf(threads);
  document["more"] = part.events_.size() == kMostSteps;
  return document;
}

Json::Value traceTimeNow() {
  return valueOf(QOVTraceEvent::Clock::now());
}

}  // namespace qov::status
