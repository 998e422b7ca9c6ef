#ifndef QOV_FRAME_ENV_ENV_PROC_NAME_H
#define QOV_FRAME_ENV_ENV_PROC_NAME_H

#include <string>

namespace qov {

/// The process name that an executable's `path` gives: its base name up to the last "." of the
/// whole path. Empty when that "." lies before the base name's second character, as in
/// /opt/rel1.2/devagent; this is kept, installations rely on the names they have.
std::string procNameFromPath(const std::string& path);

/// Why procNameFromPath(path) is empty, when it is, and what to do about it.
std::string whyEmptyName(const std::string& path);

/// The same for the executable of this process.
std::string whyNoProcName();

/// Makes CProcInfo take the process for one of the name `procName`. For a child that stands for
/// another process, before anything asks; `procName` stays the caller's and there.
void assumeProcName(const std::string& procName);

}  // namespace qov

#endif
