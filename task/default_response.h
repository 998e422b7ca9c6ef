#ifndef QOV_TASK_DEFAULT_RESPONSE_H
#define QOV_TASK_DEFAULT_RESPONSE_H

#include <qovpub/qov_message_package.h>

#include <memory>

namespace qov {

/// The answer to a request whose handler built none: the request's first command code and the
/// handler's result. Throws std::bad_alloc.
std::unique_ptr<CQOV_MsgPackage> makeDefaultResponse(const CQOV_MsgPackage& req, int result);

}  // namespace qov

#endif
