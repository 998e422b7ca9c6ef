#ifndef QOV_TOOLS_QOVCTL_AGENT_SOCKET_H
#define QOV_TOOLS_QOVCTL_AGENT_SOCKET_H

#include <json/value.h>

#include <chrono>
#include <exception>
#include <string>

#include "modules/status/descriptor.h"

namespace qov::ctl {

/// Which agent is asked.
struct AgentTarget {
  std::string root;     ///< "QOV_ROOT" of the agent
  std::string process;  ///< empty: the only one that is configured there
  std::string socket;   ///< if not empty, in place of both
  double timeout = 5;   ///< seconds
  int interrupt = -1;   ///< a descriptor, or none: once it can be read, nothing is waited for
};

/// No answer has come before AgentTarget::interrupt could be read.
class Interrupted : public std::exception {};

/// A connection to the agent's status socket.
///
/// Thread: one at a time.
/// Errors: throws Failure, also for an answer that tells an error; Interrupted.
class AgentConnection {
 public:
  explicit AgentConnection(const AgentTarget& target);

  /// Each answer has the whole time-out.
  Json::Value ask(const Json::Value& request);

 private:
  std::string receiveLine();
  /// Waits until there is something to receive.
  void awaitBytes(std::chrono::steady_clock::time_point end) const;

  const std::string path_;
  const double timeout_;
  const int interrupt_;
  const status::Descriptor socket_;
};

/// A request without arguments.
Json::Value requestFor(const char* name);

/// Asks the agent's status socket, in one connection, and returns its answer.
///
/// Thread: any.
/// Errors: throws Failure, also for an answer that tells an error; Interrupted.
Json::Value askAgent(const AgentTarget& target, const Json::Value& request);

/// The process that is named, or else the only one that is configured below the root. Throws
/// Failure.
std::string processOf(const AgentTarget& target);

}  // namespace qov::ctl

#endif
