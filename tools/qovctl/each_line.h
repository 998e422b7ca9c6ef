#ifndef QOV_TOOLS_QOVCTL_EACH_LINE_H
#define QOV_TOOLS_QOVCTL_EACH_LINE_H

#include <functional>
#include <string>
#include <string_view>

namespace qov::ctl {

/// The text that `of` makes of each line, which it gets without its end.
std::string eachLine(std::string_view text, const std::function<std::string(std::string_view)>& of);

}  // namespace qov::ctl

#endif
