#ifndef QOV_TESTS_MODULES_STATUS_SCRIPTED_AGENT_H
#define QOV_TESTS_MODULES_STATUS_SCRIPTED_AGENT_H

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "modules/status/descriptor.h"

namespace qov::test {

/// Stands in for an agent's status socket.
class ScriptedAgent {
 public:
  /// Makes the line that answers a request, in a thread of this object.
  using Answer = std::function<std::string(const std::string& request)>;

  ScriptedAgent(std::string path, Answer answer);
  ~ScriptedAgent() { goAway(); }
  ScriptedAgent(const ScriptedAgent&) = delete;
  ScriptedAgent& operator=(const ScriptedAgent&) = delete;

  void listen();
  /// Leaves no socket behind.
  void goAway();
  /// From now on it takes requests and answers none.
  void standStill() { standsStill_ = true; }
  /// Whether it has taken one.
  bool isAskedInVain() const { return isAskedInVain_; }

 private:
  void serve();
  void serve(const status::Descriptor& client);

  const std::string path_;
  const Answer answer_;
  status::Descriptor listener_;
  std::atomic<bool> standsStill_{false};
  std::atomic<bool> isAskedInVain_{false};
  std::thread thread_;
};

}  // namespace qov::test

#endif
