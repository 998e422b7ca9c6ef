#include "tools/qov-endpoint/server.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <string>

namespace qov::endpoint {
namespace {

/// Lets this process have as many handles as the reactor has room for, and gives their number:
/// `wanted`, or fewer where so many are not allowed. Who connects beyond that waits for room.
std::size_t limitHandles(std::size_t wanted) {
  rlimit limit = {};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) {
    return wanted;
  }
  limit.rlim_cur = std::min<rlim_t>(wanted, limit.rlim_max);
  ::setrlimit(RLIMIT_NOFILE, &limit);
  return limit.rlim_cur;
}

/// A poller that is not open would crash at its first use.
ACE_Reactor_Impl* opened(ACE_Dev_Poll_Reactor& poller) {
  if (!poller.initialized()) {
    throw std::runtime_error("cannot watch for events");
  }
  return &poller;
}

}  // namespace

Server::Server(const Address& address, Tables& tables, Scenario& scenario, CountsFile& counts,
               const Log& log)
    : tables_(tables),
      counts_(counts),
      log_(log),
      exchanges_(tables, scenario, counts, log),
      poller_(limitHandles(kHandles), false, nullptr, &timers_, 1),
      reactor_(opened(poller_)),
      listener_(address, log, reactor_, [this](int socket) { accepted(socket); }),
      signals_(reactor_) {}

Server::~Server() = default;

void Server::run(std::chrono::seconds grace) {
  while (signals_.count() == 0) {
    reactor_.handle_events();
    closed_.clear();
  }
  listener_.stop();
  finishConnections();
  waitForAnswers(grace);
  counts_.save();
}

void Server::finishConnections() {
  std::vector<Connection*> open;
  for (const auto& [ordinal, connection] : connections_) {
    open.push_back(connection.get());
  }
  for (Connection* connection : open) {
    connection->finish();
  }
  closed_.clear();
}

/// A second signal, or the end of the grace, ends what is left.
void Server::waitForAnswers(std::chrono::seconds grace) {
  const auto limit = std::chrono::steady_clock::now() + grace;
  while (!connections_.empty() && signals_.count() == 1) {
    const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(
        limit - std::chrono::steady_clock::now());
    if (rest.count() <= 0) {
      break;
    }
    ACE_Time_Value wait;
    wait.msec(static_cast<long>(rest.count()));
    reactor_.handle_events(&wait);
    closed_.clear();
  }
}

void Server::accepted(int socket) {
  ConnectionOwner& owner = *this;
  ++accepted_;
  Connection& opened =
      *(connections_[accepted_] = std::make_unique<Connection>(socket, accepted_, owner, reactor_));
  opened.open();
}

void Server::closed(Connection& connection) {
  const auto found = connections_.find(connection.ordinal());
  if (found != connections_.end()) {
    closed_.push_back(std::move(found->second));
    connections_.erase(found);
  }
}

}  // namespace qov::endpoint
