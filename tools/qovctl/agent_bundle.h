#ifndef QOV_TOOLS_QOVCTL_AGENT_BUNDLE_H
#define QOV_TOOLS_QOVCTL_AGENT_BUNDLE_H

#include <CLI/CLI.hpp>

#include <string>

#include "tools/qovctl/agent_socket.h"

namespace qov::ctl {

struct BundleOptions {
  std::string file;      ///< "-": standard output
  bool force = false;    ///< the file may be there
  unsigned logMib = 32;  ///< of the logs
};

void addBundleOptions(CLI::App& command, BundleOptions& options);

/// Writes an archive of what support asks for. Throws Failure, also when something is missing in
/// it.
void bundleAgent(const AgentTarget& target, const BundleOptions& options);

}  // namespace qov::ctl

#endif
