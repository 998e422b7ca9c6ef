#ifndef QOV_TESTS_SUPPORT_THIS_PROCESS_H
#define QOV_TESTS_SUPPORT_THIS_PROCESS_H

#include <qovpub/qov_utility.h>

#include <cstdlib>
#include <string>

#include "tests/support/agent_root.h"

namespace qov::test {

/// The tree of the test program's own process. The library looks for it once, so it stays until the
/// process ends.
inline AgentRoot& thisProcess() {
  static AgentRoot& root = []() -> AgentRoot& {
    std::string name;
    CProcInfo::getProcName(name);
    static AgentRoot own(name);
    own.writeConfig();
    ::setenv("QOV_ROOT", own.path().c_str(), 1);
    return own;
  }();
  return root;
}

}  // namespace qov::test

#endif
