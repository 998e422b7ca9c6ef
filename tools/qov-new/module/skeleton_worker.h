#ifndef SKELETON_WORKER_H
#define SKELETON_WORKER_H

#include <qovpub/qov_handlers.h>

namespace skeleton_module {

/// Answers one message at a time. The module has several, each with a thread of its own.
class Worker : public QOVHandlers<Worker> {
 public:
  explicit Worker(CQOV_TaskMgr* module);

 private:
  /// What the module does. A result other than 0 refuses the request.
  int greet(CQOV_MsgPackage& request, CQOV_MsgPackage& answer);
};

}  // namespace skeleton_module

#endif
