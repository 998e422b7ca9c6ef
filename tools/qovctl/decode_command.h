#ifndef QOV_TOOLS_QOVCTL_DECODE_COMMAND_H
#define QOV_TOOLS_QOVCTL_DECODE_COMMAND_H

#include <optional>
#include <string>

#include "tools/qovctl/message.h"

namespace qov::ctl {

struct DecodeOptions {
  std::string file = "-";
  bool hex = false;                 ///< the file holds hexadecimal text
  std::optional<std::string> text;  ///< hexadecimal text in place of the file
  std::optional<Kind> kind;         ///< none: each message tells its own
  bool json = false;
};

/// Prints the messages that the input holds, one behind the other. Throws Failure at the first that
/// is none, after those in front of it.
void decode(const DecodeOptions& options);

}  // namespace qov::ctl

#endif
