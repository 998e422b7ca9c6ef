#ifndef QOV_TOOLS_QOV_ENDPOINT_COMPLAINT_H
#define QOV_TOOLS_QOV_ENDPOINT_COMPLAINT_H

#include <iostream>
#include <string>

#include "tools/common/controls.h"

namespace qov::endpoint {

/// Writes the program's name and why it ends, as one line, to standard error. The text may have
/// control characters from outside.
inline void complain(const std::string& why) {
  std::cerr << "qov-endpoint: " << tools::withoutControls(why) << '\n';
}

}  // namespace qov::endpoint

#endif
