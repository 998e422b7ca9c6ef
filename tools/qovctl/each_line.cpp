#include "tools/qovctl/each_line.h"

#include <algorithm>

namespace qov::ctl {

std::string eachLine(std::string_view text,
                     const std::function<std::string(std::string_view)>& of) {
  std::string all;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find('\n', at), text.size());
    all += of(text.substr(at, end - at));
    all += text.substr(end, 1);
    at = end + 1;
  }
  return all;
}

}  // namespace qov::ctl
