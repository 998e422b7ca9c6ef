#ifndef QOV_EXAMPLES_COLLECTOR_TALLY_WORKER_H
#define QOV_EXAMPLES_COLLECTOR_TALLY_WORKER_H

#include <qovpub/qov_task.h>

#include "examples/collector/collection.h"

namespace devagent {

/// Answers what the collector has got so far, and on which machine.
class TallyWorker : public CQOV_CommonTask {
 public:
  TallyWorker(CQOV_TaskMgr* module, const Collection& collection);

  int handleMessage(CQOV_MsgPackage& request) override;

 private:
  const Collection& collection_;
};

}  // namespace devagent

#endif
