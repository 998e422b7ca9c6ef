#ifndef QOVPUB_DETAIL_LATER_PTR_H
#define QOVPUB_DETAIL_LATER_PTR_H

#include <qovpub/qov_export.h>
#include <qovpub/qov_request.h>

#include <memory>

namespace qov {

class LaterAnswer;

struct QOV_EXPORT LaterDeleter {
  void operator()(LaterAnswer* later) const;
};

/// The continuation of an askLater() in the hands of who stands in for the leader: the test kit.
using LaterPtr = std::unique_ptr<LaterAnswer, LaterDeleter>;

/// Runs `later`, which is not null, with `answer` on the calling thread, that of `task`. What it
/// throws comes through.
QOV_EXPORT void runLater(LaterPtr later, QOVAnswer answer, const CQOV_Task& task);

}  // namespace qov

#endif
