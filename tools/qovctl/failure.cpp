#include "tools/qovctl/failure.h"

#include <cstdio>

#include "modules/common/controls.h"

namespace qov::ctl {

void complain(const std::string& text) {
  std::fprintf(stderr, "qovctl: %s\n", common::withoutControls(text).c_str());
}

}  // namespace qov::ctl
