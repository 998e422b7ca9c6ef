#ifndef QOV_TESTS_TASK_ACTING_TASK_H
#define QOV_TESTS_TASK_ACTING_TASK_H

#include <functional>
#include <utility>

#include "tests/task/task_fixture.h"

/// Does something on whatever thread does the leader's work, in a putMsg() that is overridden.
/// Answers requests.
class ActingTask : public FunctionStaticTask {
 public:
  ActingTask(CQOV_TaskMgr* mgr, std::uint64_t opc, std::function<void()> act)
      : FunctionStaticTask(mgr, {opc},
                           [](CQOV_Task& task, CQOV_MsgPackage& message) {
                             return message.head().type_ == 1 ? answer(task, message) : 0;
                           }),
        act_(std::move(act)) {}

  int putMsg(int type, ACE_Message_Block* mb, ACE_Time_Value* timeout) override {
    if (type != 2) {
      act_();
    }
    return FunctionStaticTask::putMsg(type, mb, timeout);
  }

 private:
  std::function<void()> act_;
};

#endif
