#include "module/module_entry.h"

#include "module/caught.h"
#include "module/module_library.h"
#include "task/ending_thread.h"

namespace qov {

CQOV_TaskMgr* createManager(CreateModule create, std::string& whyNot) {
  whyNot = std::string(kEntryFunction) + " returned null";
  try {
    return create();
  } catch (...) {
    passOnEndOfThread();
    whyNot = caughtText();
    return nullptr;
  }
}

std::string whyInvalidGid(unsigned int gid, const std::string& holder) {
  if (gid == static_cast<unsigned int>(-1)) {
    return "its manager has no leader";
  }
  return gid > kMaxGid ? "a gid is a number from 0 to 255" : "module " + holder + " has this gid";
}

}  // namespace qov
