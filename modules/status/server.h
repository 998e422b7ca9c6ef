#ifndef QOV_MODULES_STATUS_SERVER_H
#define QOV_MODULES_STATUS_SERVER_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "modules/status/client.h"
#include "modules/status/descriptor.h"
#include "modules/status/listening_socket.h"
#include "modules/status/settings.h"

namespace qov::status {

/// Connections so far. Counted by one thread, read by any.
struct ClientCounts {
  std::atomic<std::uint64_t> accepted{0};
  std::atomic<std::uint64_t> refused{0};    ///< the peer may not ask
  std::atomic<std::uint64_t> tooMany{0};    ///< beyond Server::kMostClients at once
  std::atomic<std::uint64_t> malformed{0};  ///< ended, since what came is no request
  std::atomic<std::uint64_t> tooSlow{0};    ///< ended, since the client did not go on in time
  /// Ended by the client in the middle of a request, or before it had taken its answer.
  std::atomic<std::uint64_t> cutOff{0};
};

/// Serves the clients of the status socket on the thread that calls run().
///
/// Thread: run() on one thread; stop() and counts() from any.
/// Errors: the constructor throws CQOV_Exception. Nothing but stop() ends run().
class Server {
 public:
  using Answer = std::function<std::optional<std::string>(std::string_view request,
                                                          const ClientCounts&, Kept&)>;

  static constexpr std::size_t kMostClients = 8;

  Server(const Settings& settings, Answer answer);

  void run();
  /// Ends run() at once, now or when it begins.
  void stop();

  const ClientCounts& counts() const { return counts_; }

 private:
  using Clock = Client::Clock;

  /// Returns false when stop() has been called.
  bool turn();
  int millisecondsToWait() const;
  /// Of all clients, those that have hung up or the others.
  void advanceThose(bool hungUp);
  bool advance(Client& client);
  void dropSlowClients(Clock::time_point now);
  void acceptOne();

  // Constant after construction.
  const Settings settings_;
  const Answer answer_;
  const ListeningSocket listener_;
  const Descriptor stop_;

  // The thread of run().
  std::vector<Client> clients_;
  ClientCounts counts_;
  Clock::time_point acceptAgain_{};  ///< later than now after accept() has failed
};

}  // namespace qov::status

#endif
