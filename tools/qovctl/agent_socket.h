#ifndef QOV_TOOLS_QOVCTL_AGENT_SOCKET_H
#define QOV_TOOLS_QOVCTL_AGENT_SOCKET_H

#include <json/value.h>

#include <chrono>
#include <string>

#include "modules/status/descriptor.h"
#include "tools/qovctl/failure.h"

namespace qov::ctl {

/// Which agent is asked.
struct AgentTarget {
  std::string root;                    ///< "QOV_ROOT" of the agent
  std::string process;                 ///< empty: the only one that is configured there
  std::string socket;                  ///< if not empty, in place of both
  double timeout = 5;                  ///< seconds
  int interrupt = -1;                  ///< a descriptor, or -1; `grace` begins once it can be read
  std::chrono::milliseconds grace{0};  ///< what each answer may still take from then on
};

/// No answer has come in the grace that AgentTarget::interrupt has begun.
class Interrupted : public Failure {
 public:
  explicit Interrupted(const std::string& path)
      : Failure(kTimedOut, path + ": no answer in time after the interrupt") {}
};

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
  /// For an answer.
  struct Wait {
    std::chrono::steady_clock::time_point end;
    bool isInterrupted = false;
  };

  std::string receiveLine();
  /// Waits until there is something to receive.
  void awaitBytes(Wait& wait) const;

  const std::string path_;
  const double timeout_;
  const int interrupt_;
  const std::chrono::milliseconds grace_;
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
