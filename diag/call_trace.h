#ifndef QOV_DIAG_CALL_TRACE_H
#define QOV_DIAG_CALL_TRACE_H

#include <qovpub/qov_common_debugkit.h>

namespace qov {

/// A guard's record of `kit`, made of three pieces. The guard has tested the level.
void traceCall(const CQOVDebugKit& kit, const char* before, const char* name, const char* after);

}  // namespace qov

#endif
