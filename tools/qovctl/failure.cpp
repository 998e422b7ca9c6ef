#include "tools/qovctl/failure.h"

#include <algorithm>
#include <cstdio>

namespace qov::ctl {

void complain(const std::string& text) {
  std::string line = "qovctl: " + text;
  std::replace_if(
      line.begin(), line.end(),
      [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }, '?');
  std::fprintf(stderr, "%s\n", line.c_str());
}

}  // namespace qov::ctl
