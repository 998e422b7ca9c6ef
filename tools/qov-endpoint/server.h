#ifndef QOV_TOOLS_QOV_ENDPOINT_SERVER_H
#define QOV_TOOLS_QOV_ENDPOINT_SERVER_H

#include <ace/Dev_Poll_Reactor.h>
#include <ace/Event_Handler_Handle_Timeout_Upcall.h>
#include <ace/Monotonic_Time_Policy.h>
#include <ace/Null_Mutex.h>
#include <ace/Reactor.h>
#include <ace/Timer_Heap_T.h>

#include <map>
#include <memory>
#include <vector>

#include "tools/qov-endpoint/connection.h"
#include "tools/qov-endpoint/listener.h"
#include "tools/qov-endpoint/stop_signals.h"

namespace qov::endpoint {

/// Serves all clients in one thread.
///
/// Thread: run() is the event loop; nothing may be called from another one.
/// Owns:   the reactor, the listening socket and the connections.
/// Errors: std::runtime_error when the address cannot be had or the counts cannot be written.
class Server : private ConnectionOwner {
 public:
  Server(const Address& address, Tables& tables, Scenario& scenario, CountsFile& counts,
         const Log& log);
  ~Server() override;

  const ACE_INET_Addr& address() const { return listener_.address(); }
  /// Returns after SIGTERM or SIGINT, when the answers on their way are sent; after `grace` or a
  /// second signal in any case.
  void run(std::chrono::seconds grace);

 private:
  // More than select() could watch, and far less than some machines allow: a table of so many
  // handles is made in advance.
  static constexpr std::size_t kHandles = 10000;
  using Timers = ACE_Timer_Heap_T<ACE_Event_Handler*, ACE_Event_Handler_Handle_Timeout_Upcall,
                                  ACE_Null_Mutex, ACE_Monotonic_Time_Policy>;

  Exchanges& exchanges() override { return exchanges_; }
  CountsFile& counts() override { return counts_; }
  const Tables& tables() const override { return tables_; }
  const Log& log() const override { return log_; }
  void closed(Connection& connection) override;
  void refuse(std::chrono::milliseconds time) override { listener_.refuse(time); }

  void accepted(int socket);
  void finishConnections();
  void waitForAnswers(std::chrono::seconds grace);

  const Tables& tables_;
  CountsFile& counts_;
  const Log& log_;
  Exchanges exchanges_;
  Timers timers_;
  ACE_Dev_Poll_Reactor poller_;
  ACE_Reactor reactor_;
  Listener listener_;
  StopSignals signals_;
  std::uint64_t accepted_ = 0;
  std::map<std::uint64_t, std::unique_ptr<Connection>> connections_;
  // Closed within the turn of the loop that is running, in which calls of theirs may be open.
  std::vector<std::unique_ptr<Connection>> closed_;
};

}  // namespace qov::endpoint

#endif
