#ifndef QOV_TOOLS_QOVCTL_AGENT_SOCKET_H
#define QOV_TOOLS_QOVCTL_AGENT_SOCKET_H

#include <json/value.h>

#include <string>

namespace qov::ctl {

/// Which agent is asked.
struct AgentTarget {
  std::string root;     ///< "QOV_ROOT" of the agent
  std::string process;  ///< empty: the only one that is configured there
  std::string socket;   ///< if not empty, in place of both
  double timeout = 5;   ///< seconds
};

/// Asks the agent's status socket, in one connection, and returns its answer.
///
/// Thread: any.
/// Errors: throws Failure; an answer that tells an error is one of those.
Json::Value askAgent(const AgentTarget& target, const Json::Value& request);

}  // namespace qov::ctl

#endif
