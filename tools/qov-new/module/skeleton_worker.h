#ifndef SKELETON_WORKER_H
#define SKELETON_WORKER_H

#include <qovpub/qov_task.h>

#include <memory>

namespace skeleton_module {

/// The answer to `request`: what the module does, apart from how messages come and go.
std::unique_ptr<CQOV_MsgPackage> answerTo(const CQOV_MsgPackage& request);

/// Answers one message at a time. The module has several, each with a thread of its own.
class Worker : public CQOV_CommonTask {
 public:
  using CQOV_CommonTask::CQOV_CommonTask;

  int handleMessage(CQOV_MsgPackage& message) override;
};

}  // namespace skeleton_module

#endif
