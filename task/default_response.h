#ifndef QOV_TASK_DEFAULT_RESPONSE_H
#define QOV_TASK_DEFAULT_RESPONSE_H

#include <qovpub/qov_message_package.h>

#include <memory>

namespace qov {

/// The answer to a request whose handler built none: the request's first command code and the
/// handler's result. Throws std::bad_alloc.
std::unique_ptr<CQOV_MsgPackage> makeDefaultResponse(const CQOV_MsgPackage& req, int result);

/// Has `task` handle `req` by its handleRequest(), and returns its result. `answer` gets what it
/// has set; if it throws, that is freed.
template <class Task>
int handleRequest(Task& task, CQOV_MsgPackage& req, std::unique_ptr<CQOV_MsgPackage>& answer) {
  CQOV_MsgPackage* set = nullptr;
  try {
    const int result = task.handleRequest(req, set);
    answer.reset(set);
    return result;
  } catch (...) {
    delete set;
    throw;
  }
}

}  // namespace qov

#endif
