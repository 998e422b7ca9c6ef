#include "tools/qovctl/trace_slices.h"

#include <algorithm>
#include <map>

#include "tools/qovctl/trace_thread.h"

namespace qov::ctl {
namespace {

/// Steps of the work that a thread does itself, in contrast to a leader's that it lends a hand.
bool isOwn(TraceStep::Kind kind) {
  return kind != TraceStep::Kind::kDispatch && kind != TraceStep::Kind::kTimeOut &&
         kind != TraceStep::Kind::kDrop;
}

TraceSlice mark(const TraceLog& log, std::size_t step) {
  const TraceStep& at = log.steps()[step];
  return {TraceSlice::Kind::kMark, at.thread, at.time, at.time + TraceSlice::kMarkSpan, step, step};
}

/// By thread and begin, and the outer one first.
bool isBefore(const TraceSlice& one, const TraceSlice& other) {
  if (one.thread != other.thread) {
    return one.thread < other.thread;
  }
  if (one.begin != other.begin) {
    return one.begin < other.begin;
  }
  if ((one.kind == TraceSlice::Kind::kMark) != (other.kind == TraceSlice::Kind::kMark)) {
    return other.kind == TraceSlice::Kind::kMark;
  }
  return one.end > other.end;
}

/// Marks end where the thread goes on, and nothing outlasts what it lies in.
void nest(std::vector<TraceSlice>& slices) {
  std::vector<const TraceSlice*> outer;
  for (std::size_t i = 0; i < slices.size(); ++i) {
    TraceSlice& slice = slices[i];
    while (!outer.empty() &&
           (outer.back()->thread != slice.thread || outer.back()->end <= slice.begin)) {
      outer.pop_back();
    }
    if (slice.kind == TraceSlice::Kind::kMark && i + 1 < slices.size() &&
        slices[i + 1].thread == slice.thread) {
      slice.end = std::min(slice.end, slices[i + 1].begin);
    }
    if (!outer.empty()) {
      slice.end = std::min(slice.end, outer.back()->end);
    }
    outer.push_back(&slice);
  }
}

}  // namespace

std::vector<TraceSlice> slicesOf(const TraceLog& log) {
  const RequestEnds ends(log);
  std::map<std::int64_t, std::vector<std::size_t>> threads;
  std::vector<TraceSlice> slices;
  for (std::size_t i = 0; i < log.steps().size(); ++i) {
    const TraceStep& step = log.steps()[i];
    if (isOwn(step.kind)) {
      threads[step.thread].push_back(i);
    } else if (step.kind == TraceStep::Kind::kDispatch) {
      slices.push_back(mark(log, i));
    }
  }
  for (const auto& [thread, steps] : threads) {
    TraceThread(log, ends, steps, slices).addSlices();
  }
  std::stable_sort(slices.begin(), slices.end(), isBefore);
  nest(slices);
  return slices;
}

}  // namespace qov::ctl
