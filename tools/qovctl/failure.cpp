#include "tools/qovctl/failure.h"

#include <cstdio>

#include "tools/common/controls.h"

namespace qov::ctl {

void complain(const std::string& text) {
  std::fprintf(stderr, "qovctl: %s\n", tools::withoutControls(text).c_str());
}

std::string shortened(std::string_view text) {
  constexpr std::size_t kShown = 60;
  return std::string(text.substr(0, kShown)) + (text.size() > kShown ? "..." : "");
}

}  // namespace qov::ctl
