#include "tools/qovctl/trace_flows.h"

#include <algorithm>
#include <map>

namespace qov::ctl {
namespace {

using Kind = TraceStep::Kind;

/// The points of `slice`: where it begins, and for a wait where it ends, just inside of it.
std::vector<TraceFlowPoint> pointsOf(const TraceSlice& slice) {
  std::vector<TraceFlowPoint> points;
  if (slice.first) {
    points.push_back({slice.begin, slice.thread, *slice.first});
  }
  if (slice.ending == TraceSlice::Ending::kAnswer) {
    points.push_back({std::max(slice.begin, slice.end - 1), slice.thread, *slice.last});
  }
  return points;
}

bool isSent(const TraceStep& step) {
  return step.kind == Kind::kSend && step.type != TraceStep::kResponse;
}

bool isEarlier(const TraceFlowPoint& one, const TraceFlowPoint& other) {
  return one.time != other.time ? one.time < other.time : one.step < other.step;
}

}  // namespace

std::vector<TraceFlow> flowsOf(const TraceLog& log, const std::vector<TraceSlice>& slices) {
  std::vector<TraceFlowPoint> points;
  for (const TraceSlice& slice : slices) {
    const auto some = pointsOf(slice);
    points.insert(points.end(), some.begin(), some.end());
  }
  std::sort(points.begin(), points.end(), isEarlier);
  std::vector<TraceFlow> flows;
  std::map<TraceStep::Key, std::size_t> last;
  for (const TraceFlowPoint& point : points) {
    const TraceStep& step = log.steps()[point.step];
    const auto [known, isNew] = last.try_emplace(step.key(), flows.size());
    if (isNew || isSent(step)) {
      known->second = flows.size();
      flows.emplace_back();
    }
    flows[known->second].push_back(point);
  }
  const auto isAlone = [](const TraceFlow& flow) { return flow.size() < 2; };
  flows.erase(std::remove_if(flows.begin(), flows.end(), isAlone), flows.end());
  return flows;
}

}  // namespace qov::ctl
