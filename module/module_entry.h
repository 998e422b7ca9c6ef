#ifndef QOV_MODULE_MODULE_ENTRY_H
#define QOV_MODULE_MODULE_ENTRY_H

#include <string>

class CQOV_TaskMgr;

namespace qov {

/// What a module library exports under the name kEntryFunction.
using CreateModule = CQOV_TaskMgr* (*)();

/// The manager that `create` makes, which the caller deletes; null when it gives none or throws,
/// and `whyNot` says why.
CQOV_TaskMgr* createManager(CreateModule create, std::string& whyNot);

/// Of a gid that a module cannot have: below 256 it is that of the module `holder`.
std::string whyInvalidGid(unsigned int gid, const std::string& holder);

/// What a gid is at most.
constexpr unsigned int kMaxGid = 255;

}  // namespace qov

#endif
