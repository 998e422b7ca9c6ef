#ifndef QOV_TOOLS_QOVCTL_BUNDLE_PARTS_H
#define QOV_TOOLS_QOVCTL_BUNDLE_PARTS_H

#include <json/value.h>

#include <cstddef>
#include <string>

#include "tools/qovctl/agent_socket.h"
#include "tools/qovctl/bundle.h"

namespace qov::ctl {

// The parts of a bundle. What cannot be had is missing in it.

/// What the agent tells. Returns its status; null without.
Json::Value addAnswers(Bundle& bundle, const AgentTarget& target);

/// Configuration, without secrets, and what `qovctl check` says of it. `root` is "QOV_ROOT".
void addConfiguration(Bundle& bundle, const std::string& root, const std::string& process);

/// The ends of the logs, the newest first, of `most` bytes in all.
void addLogs(Bundle& bundle, const std::string& root, const std::string& process, std::size_t most);

/// What the system tells of the process with that id, and of itself.
void addSystem(Bundle& bundle, const Json::Value& pid);

}  // namespace qov::ctl

#endif
