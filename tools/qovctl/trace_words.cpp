#include "tools/qovctl/trace_words.h"

#include <array>

namespace qov::ctl {
namespace {

std::string markName(const TraceLog& log, const TraceStep& step) {
  switch (step.kind) {
    case TraceStep::Kind::kDispatch:
      return "leader of " + log.module(step.module);
    case TraceStep::Kind::kAnswer:
      return "answer from " + log.module(step.from);
    default:
      return "send " + typeName(step.type) + " to " + log.module(step.to);
  }
}

}  // namespace

std::string typeName(unsigned int type) {
  constexpr std::array<const char*, 5> kNames{"no type", "request", "response", "notice", "event"};
  return type < kNames.size() ? kNames[type] : "type " + std::to_string(type);
}

std::string sliceName(const TraceLog& log, const TraceSlice& slice) {
  const TraceStep& step = log.steps()[slice.step()];
  const std::string operation = ": " + std::to_string(step.operation);
  switch (slice.kind) {
    case TraceSlice::Kind::kHandler:
      return log.module(step.module) + operation +
             (step.type == TraceStep::kResponse ? ", answered" : "");
    case TraceSlice::Kind::kWait:
      // What ends a wait alone may be the response.
      return "ask " + log.module(step.type == TraceStep::kResponse ? step.from : step.to) +
             operation;
    default:
      return markName(log, step) + operation;
  }
}

std::string instantName(const TraceStep& step) {
  return (step.kind == TraceStep::Kind::kDrop ? "drop, " + step.reason : "time-out") + ": " +
         std::to_string(step.operation);
}

const char* endingText(TraceSlice::Ending ending) {
  constexpr std::array<const char*, 4> kTexts{"not in the trace", "answer", "time-out", "drop"};
  return kTexts.at(static_cast<std::size_t>(ending));
}

}  // namespace qov::ctl
