#ifndef QOV_TESTS_MODULES_STATUS_STATUS_CLIENT_H
#define QOV_TESTS_MODULES_STATUS_STATUS_CLIENT_H

#include <sys/types.h>

#include <nlohmann/json.hpp>
#include <string>

#include "modules/status/descriptor.h"

namespace qov::test {

/// A client of the status socket. Throws std::runtime_error when something does not come in time.
class StatusClient {
 public:
  explicit StatusClient(const std::string& path);

  /// Sends as it is; what the agent does not take is no failure.
  void send(const std::string& bytes) const;
  /// Sends until the agent takes no more.
  void fill(const std::string& bytes) const;
  nlohmann::json receive();
  nlohmann::json ask(const nlohmann::json& request) {
    send(request.dump() + "\n");
    return receive();
  }
  /// Waits until the agent has closed the connection, or sends something: false then.
  bool isClosed();
  /// Reads whatever comes until the agent has closed the connection.
  void drain();
  /// Sends no more.
  void shutDown() const;
  /// The process that listens.
  pid_t agent() const;

 private:
  /// What has come; empty at the end.
  std::string more() const;

  status::Descriptor socket_;
  std::string received_;
};

}  // namespace qov::test

#endif
