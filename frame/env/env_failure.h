#ifndef QOV_FRAME_ENV_ENV_FAILURE_H
#define QOV_FRAME_ENV_ENV_FAILURE_H

#include <qovpub/qov_exception.h>

#include <memory>
#include <string>

#include "frame/env/failure.h"

namespace qov {

/// Thrown by CProcInfo's constructor. what() is the fixed text; failure() says where and why. It is
/// a value, since nothing below the log may log.
///
/// Thread: as CQOV_Exception.
/// Owns:   the failure, which copies share.
class EnvFailure : public CQOV_Exception {
 public:
  EnvFailure(const std::string& message, Failure failure);

  const Failure& failure() const { return *failure_; }

 private:
  std::shared_ptr<const Failure> failure_;
};

}  // namespace qov

#endif
