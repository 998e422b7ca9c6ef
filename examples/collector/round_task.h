#ifndef QOV_EXAMPLES_COLLECTOR_ROUND_TASK_H
#define QOV_EXAMPLES_COLLECTOR_ROUND_TASK_H

#include <qovpub/qov_handlers.h>

#include "examples/collector/collection.h"
#include "examples/common/messages.h"

namespace devagent {

/// Runs a round when asked to: reads the machine's state from the inventory, keeps it and tells the
/// journal. Being a static scheduled task it serves its own operation on a thread of its own, one
/// round at a time, while the pool stays free.
class RoundTask : public QOVStaticHandlers<RoundTask> {
 public:
  RoundTask(CQOV_TaskMgr* module, Collection& collection);

 private:
  /// Answers when the round is over, finished or not.
  int serveRound(CQOV_MsgPackage& request, CQOV_MsgPackage& answer);
  /// False when the agent stops in the middle of it.
  bool runRound();
  /// Asks for records and keeps them. False when it ended for another reason than an answer or the
  /// time-out.
  bool collect(Operation operation, QOVRequest::Duration timeout);
  bool askInventoryTally();
  QOVAnswer ask(Operation operation, QOVRequest::Duration timeout);
  void noteTimeout(Operation operation);
  void finishRound();

  Collection& collection_;
  Tally tally_;
};

}  // namespace devagent

#endif
