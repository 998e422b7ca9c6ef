#ifndef QOV_FRAME_APP_START_LINES_H
#define QOV_FRAME_APP_START_LINES_H

namespace qov {

/// Logs what starts here, and warns of a PROC_PID that cannot be meant and of another process on
/// the same configuration directory. To be called when the log stands; throws CQOV_Exception as the
/// getters of QOV_Utility do.
void logStart();

}  // namespace qov

#endif
