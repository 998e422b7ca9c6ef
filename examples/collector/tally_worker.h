#ifndef QOV_EXAMPLES_COLLECTOR_TALLY_WORKER_H
#define QOV_EXAMPLES_COLLECTOR_TALLY_WORKER_H

#include <qovpub/qov_handlers.h>

#include "examples/collector/collection.h"

namespace devagent {

/// Answers what the collector has got so far, and on which machine.
class TallyWorker : public QOVHandlers<TallyWorker> {
 public:
  TallyWorker(CQOV_TaskMgr* module, const Collection& collection);

 private:
  int readTally(CQOV_MsgPackage& request, CQOV_MsgPackage& answer);

  const Collection& collection_;
};

}  // namespace devagent

#endif
