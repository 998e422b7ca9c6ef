#ifndef QOV_TOOLS_QOVCTL_HEX_TEXT_H
#define QOV_TOOLS_QOVCTL_HEX_TEXT_H

#include <string>
#include <string_view>

namespace qov::ctl {

/// The bytes that hexadecimal text stands for: groups of any even number of digits, each with or
/// without "0x" before it, apart by blanks, line ends, colons or nothing; "#" starts a comment that
/// goes to the end of the line. Throws Failure with the line of what is not.
std::string bytesOfHexText(std::string_view text);

}  // namespace qov::ctl

#endif
