#ifndef QOV_TOOLS_QOVCTL_TRACE_WORDS_H
#define QOV_TOOLS_QOVCTL_TRACE_WORDS_H

#include <string>

#include "tools/qovctl/trace_slices.h"

namespace qov::ctl {

/// "request"; "type 7" for what is none of the known.
std::string typeName(unsigned int type);

/// "20 collector: 8194", "ask 10 inventory: 8195", "leader of 10 inventory: 8195".
std::string sliceName(const TraceLog& log, const TraceSlice& slice);
/// "time-out: 8195", "drop, noRoom: 8195".
std::string instantName(const TraceStep& step);
/// How a wait ended.
const char* endingText(TraceSlice::Ending ending);

}  // namespace qov::ctl

#endif
