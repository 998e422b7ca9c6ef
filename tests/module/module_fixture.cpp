#include "tests/module/module_fixture.h"

#include <ace/DLL_Manager.h>
#include <ace/Message_Block.h>
#include <ace/OS_NS_dlfcn.h>

namespace qov::test {

std::vector<std::string> ModuleTest::tracesOf(const std::function<void()>& operation) {
  const ProcessLog traced;
  operation();
  return traced.messages("TRACE");
}

int ModuleTest::timesOpen(const std::string& name) {
  ACE_DLL_Manager& manager = *ACE_DLL_Manager::instance(1024);
  ACE_DLL_Handle* const dll = manager.open_dll(name.c_str(), RTLD_LAZY | RTLD_GLOBAL, nullptr);
  const int count = dll->refcount() - 1;
  manager.close_dll(name.c_str());
  return count;
}

bool ModuleTest::sendsIgnored(CQOV_Module_Loader& to, u_short gid) {
  constexpr int kIgnoredType = 77;
  ACE_Message_Block* const block = new ACE_Message_Block(0, kIgnoredType);
  const bool sent = to.sendMsg(gid, block) == 0;
  if (!sent) {
    block->release();
  }
  return sent;
}

}  // namespace qov::test
