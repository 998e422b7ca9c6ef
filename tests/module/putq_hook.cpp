#include "tests/module/putq_hook.h"

#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_leader_task.h>

#include <memory>
#include <mutex>
#include <utility>

#include "task/log_ids.h"

namespace {

using qov::test::PutqHook;

std::mutex hookMutex;
std::shared_ptr<const PutqHook::Hook> currentHook;

std::shared_ptr<const PutqHook::Hook> hook() {
  const std::lock_guard<std::mutex> lock(hookMutex);
  return currentHook;
}

void setHook(std::shared_ptr<const PutqHook::Hook> hook) {
  const std::lock_guard<std::mutex> lock(hookMutex);
  currentHook = std::move(hook);
}

}  // namespace

int CQOV_TaskMgr::putq(ACE_Message_Block* mb, ACE_Time_Value* timeout) {
  if (const auto before = hook()) {
    if (const std::optional<int> result = (*before)(*this, mb, timeout)) {
      return *result;
    }
  }
  // As the library's own does it.
  const CQOVDebugKitGuard log(qov::kPublicKit,
                              "int CQOV_TaskMgr::putq(ACE_Message_Block*, ACE_Time_Value*)");
  return leader_->msg_queue()->enqueue_tail(mb, timeout);
}

namespace qov::test {

PutqHook::PutqHook(Hook hook) {
  setHook(std::make_shared<const Hook>(std::move(hook)));
}

PutqHook::~PutqHook() {
  setHook(nullptr);
}

}  // namespace qov::test
