#ifndef QOV_TESTS_MODULE_PUTQ_HOOK_H
#define QOV_TESTS_MODULE_PUTQ_HOOK_H

#include <qovpub/qov_task_mgr.h>

#include <functional>
#include <optional>

namespace qov::test {

/// While it lives, `hook` sees each block that is put into a module's queue, on the thread that
/// puts it. What it returns replaces the putting; without a value the block goes on into the queue.
///
/// The program must be linked with putq_hook.cpp and the linker's --wrap of CQOV_TaskMgr::putq().
/// Only calls from the program's own objects are seen, the library's among them.
class PutqHook {
 public:
  using Hook = std::function<std::optional<int>(const CQOV_TaskMgr& to, ACE_Message_Block* mb,
                                                const ACE_Time_Value* timeout)>;

  explicit PutqHook(Hook hook);
  ~PutqHook();

  PutqHook(const PutqHook&) = delete;
  PutqHook& operator=(const PutqHook&) = delete;
};

}  // namespace qov::test

#endif
