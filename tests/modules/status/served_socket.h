#ifndef QOV_TESTS_MODULES_STATUS_SERVED_SOCKET_H
#define QOV_TESTS_MODULES_STATUS_SERVED_SOCKET_H

#include <chrono>
#include <string>
#include <thread>
#include <utility>

#include "modules/status/server.h"
#include "tests/modules/status/status_client.h"
#include "tests/support/files.h"

namespace qov::test {

/// A status socket that a thread of this process serves while the object lives.
class ServedSocket {
 public:
  explicit ServedSocket(status::Server::Answer answer,
                        std::chrono::milliseconds patience = std::chrono::hours(1))
      : server_(settings(patience), std::move(answer)), thread_([this] { server_.run(); }) {}
  ~ServedSocket() {
    server_.stop();
    thread_.join();
  }
  ServedSocket(const ServedSocket&) = delete;
  ServedSocket& operator=(const ServedSocket&) = delete;

  StatusClient client() const { return StatusClient(folder_.file("s")); }
  const status::ClientCounts& counts() const { return server_.counts(); }

 private:
  status::Settings settings(std::chrono::milliseconds patience) const {
    status::Settings made;
    made.socket = folder_.file("s");
    made.patience = patience;
    return made;
  }

  const TemporaryDirectory folder_;
  status::Server server_;
  std::thread thread_;
};

}  // namespace qov::test

#endif
