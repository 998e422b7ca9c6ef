#include "tests/module/putq_hook.h"

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

}  // namespace

// The linker takes every call of CQOV_TaskMgr::putq() here (--wrap) and names the library's own.
int wrappedPutq(CQOV_TaskMgr* to, ACE_Message_Block* mb, ACE_Time_Value* timeout) __asm__(
    "__wrap__ZN12CQOV_TaskMgr4putqEP17ACE_Message_BlockP14ACE_Time_Value");
int realPutq(CQOV_TaskMgr* to, ACE_Message_Block* mb, ACE_Time_Value* timeout) __asm__(
    "__real__ZN12CQOV_TaskMgr4putqEP17ACE_Message_BlockP14ACE_Time_Value");

int wrappedPutq(CQOV_TaskMgr* to, ACE_Message_Block* mb, ACE_Time_Value* timeout) {
  if (const auto before = hook()) {
    if (const std::optional<int> result = (*before)(*to, mb, timeout)) {
      return *result;
    }
  }
  return realPutq(to, mb, timeout);
}

namespace qov::test {

PutqHook::PutqHook(Hook hook) {
  setHook(std::make_shared<const Hook>(std::move(hook)));
}

PutqHook::~PutqHook() {
  setHook(nullptr);
}

}  // namespace qov::test
