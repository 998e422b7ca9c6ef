#include "tests/module/putq_hook.h"

#include <dlfcn.h>

#include <memory>
#include <mutex>
#include <utility>

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

int putIntoQueue(CQOV_TaskMgr* mgr, ACE_Message_Block* mb, ACE_Time_Value* timeout) {
  using Putq = int (*)(CQOV_TaskMgr*, ACE_Message_Block*, ACE_Time_Value*);
  static const auto putq = reinterpret_cast<Putq>(
      ::dlsym(RTLD_NEXT, "_ZN12CQOV_TaskMgr4putqEP17ACE_Message_BlockP14ACE_Time_Value"));
  return putq(mgr, mb, timeout);
}

}  // namespace

int CQOV_TaskMgr::putq(ACE_Message_Block* mb, ACE_Time_Value* timeout) {
  if (const auto before = hook()) {
    if (const std::optional<int> result = (*before)(*this, mb, timeout)) {
      return *result;
    }
  }
  return putIntoQueue(this, mb, timeout);
}

namespace qov::test {

PutqHook::PutqHook(Hook hook) {
  setHook(std::make_shared<const Hook>(std::move(hook)));
}

PutqHook::~PutqHook() {
  setHook(nullptr);
}

}  // namespace qov::test
