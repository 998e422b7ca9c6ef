#ifndef QOV_TOOLS_QOVCTL_TOP_COMMAND_H
#define QOV_TOOLS_QOVCTL_TOP_COMMAND_H

#include <CLI/CLI.hpp>

#include "tools/qovctl/agent_socket.h"

namespace qov::ctl {

struct TopOptions {
  double interval = 2;  ///< seconds
  bool once = false;
};

void addTopOptions(CLI::App& command, TopOptions& options);

/// Shows what the agent does, live on the terminal until the user ends it, or once as lines, or as
/// JSON. Throws Failure, also when the first answer does not come; later ones are tried again.
void top(const AgentTarget& target, const TopOptions& options, bool json);

}  // namespace qov::ctl

#endif
