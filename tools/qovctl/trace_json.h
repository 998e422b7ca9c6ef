#ifndef QOV_TOOLS_QOVCTL_TRACE_JSON_H
#define QOV_TOOLS_QOVCTL_TRACE_JSON_H

#include <functional>
#include <string>
#include <string_view>

#include "tools/qovctl/trace_log.h"

namespace qov::ctl {

/// Gives `write` the log in Chrome's trace event format, piece by piece: for each thread a track
/// with what it handles and waits for, and for each message arrows from step to step. Times are
/// microseconds from the first step on. `about` is an object for the file's metadata.
void writeTraceJson(const TraceLog& log, const Json::Value& about,
                    const std::function<void(std::string_view)>& write);

}  // namespace qov::ctl

#endif
