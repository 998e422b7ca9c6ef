#ifndef QOV_TOOLS_QOVCTL_TRACE_FLOWS_H
#define QOV_TOOLS_QOVCTL_TRACE_FLOWS_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tools/qovctl/trace_slices.h"

namespace qov::ctl {

/// Where a message is, within a slice.
struct TraceFlowPoint {
  std::int64_t time;
  std::int64_t thread;
  std::size_t step;
};

/// The way of one message, and of the response to it: a point in each slice that it comes by, at
/// least two, in the order of their times.
using TraceFlow = std::vector<TraceFlowPoint>;

/// The ways of all messages in the log, whose slices are `slices`. A message that is sent once more
/// begins another one.
std::vector<TraceFlow> flowsOf(const TraceLog& log, const std::vector<TraceSlice>& slices);

}  // namespace qov::ctl

#endif
