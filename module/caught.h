#ifndef QOV_MODULE_CAUGHT_H
#define QOV_MODULE_CAUGHT_H

#include <cerrno>
#include <exception>
#include <new>
#include <string>

#include "frame/env/failure.h"

namespace qov {

/// What the exception says that the calling catch clause handles.
inline std::string caughtText() {
  try {
    throw;
  } catch (const std::bad_alloc&) {
    return errnoText(ENOMEM);
  } catch (const std::exception& e) {
    return e.what();
  } catch (...) {
    return "an exception that is no std::exception";
  }
}

}  // namespace qov

#endif
