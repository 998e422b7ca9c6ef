#include "tests/module/module_fixture.h"

#include <cstdlib>

#include <qovpub/qov_utility.h>

namespace qov::test {

AgentRoot& thisProcess() {
  static AgentRoot& root = [&]() -> AgentRoot& {
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
