#ifndef QOV_TOOLS_QOVCTL_TRACE_DIAGRAM_H
#define QOV_TOOLS_QOVCTL_TRACE_DIAGRAM_H

#include <cstdint>
#include <optional>
#include <string>

#include "tools/qovctl/trace_log.h"

namespace qov::ctl {

/// The way of the request with the serial number, or of the answered one that waited longest, as a
/// sequence diagram of Mermaid, with what its handlers have sent. Times begin with its first step.
/// Empty if there is no such request.
std::string traceDiagram(const TraceLog& log, std::optional<std::uint32_t> serial);

}  // namespace qov::ctl

#endif
