#include "modules/status/server.h"

#include <poll.h>
#include <qovpub/qov_exception.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>
#include <new>
#include <utility>

#include "modules/status/peer.h"

namespace qov::status {
namespace {

/// How long nothing is accepted after accept() has failed: the process may be out of descriptors.
constexpr std::chrono::seconds kPause{1};

enum Place : std::size_t { kStop, kListener, kFirstClient };

}  // namespace

Server::Server(const Settings& settings, Answer answer)
    : settings_(settings),
      answer_(std::move(answer)),
      listener_(settings),
      stop_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (stop_.get() < 0) {
    throw CQOV_Exception("Failed to make the status socket: no descriptor for its stop");
  }
  clients_.reserve(kMostClients);
}

void Server::run() {
  for (bool goesOn = true; goesOn;) {
    try {
      goesOn = turn();
    } catch (const std::bad_alloc&) {
      clients_.clear();
    }
  }
  clients_.clear();
}

void Server::stop() {
  const std::uint64_t one = 1;
  // Never full: nobody reads it, and one note is enough.
  static_cast<void>(!::write(stop_.get(), &one, sizeof one));
}

bool Server::turn() {
  const bool accepts = Clock::now() >= acceptAgain_;
  // Needs no memory: a turn that fails before it waits would be repeated at once, and for ever.
  std::array<pollfd, kFirstClient + kMostClients> waits{};
  waits[kStop] = {stop_.get(), POLLIN, 0};
  waits[kListener] = {accepts ? listener_.descriptor() : -1, POLLIN, 0};
  for (std::size_t i = 0; i < clients_.size(); ++i) {
    waits[kFirstClient + i] = {clients_[i].descriptor(), clients_[i].events(), 0};
  }
  ::poll(waits.data(), kFirstClient + clients_.size(), millisecondsToWait());
  if (waits[kStop].revents != 0) {
    return false;
  }
  // Who sends in time is not late, however long others' answers take from here on.
  const Clock::time_point now = Clock::now();
  for (std::size_t i = 0; i < clients_.size(); ++i) {
    clients_[i].note(waits[kFirstClient + i].revents);
  }
  // First those who have gone: what they held is free for those who ask for it in the same turn.
  advanceThose(true);
  advanceThose(false);
  if (waits[kListener].revents != 0) {
    acceptOne();
  }
  dropSlowClients(now);
  return true;
}

int Server::millisecondsToWait() const {
  const Clock::time_point now = Clock::now();
  Clock::time_point next = Clock::time_point::max();
  for (const Client& client : clients_) {
    next = std::min(next, client.isReady() ? now : client.deadline());
  }
  if (now < acceptAgain_) {
    next = std::min(next, acceptAgain_);
  }
  if (next == Clock::time_point::max()) {
    return -1;
  }
  const auto span = std::chrono::ceil<std::chrono::milliseconds>(next - now);
  return static_cast<int>(std::max(span.count(), std::chrono::milliseconds::rep{0}));
}

void Server::advanceThose(bool hungUp) {
  for (auto client = clients_.begin(); client != clients_.end();) {
    const bool isOne = client->hasHungUp() == hungUp && client->canAdvance();
    client = isOne && !advance(*client) ? clients_.erase(client) : std::next(client);
  }
}

bool Server::advance(Client& client) {
  const Client::State state = client.advance([this, &client](std::string_view request) {
    return answer_(request, counts_, client.kept());
  });
  counts_.malformed += state == Client::State::kMalformed ? 1 : 0;
  counts_.cutOff += state == Client::State::kCutOff ? 1 : 0;
  return state == Client::State::kGoesOn;
}

void Server::dropSlowClients(Clock::time_point now) {
  const auto isLate = [now](const Client& client) { return client.deadline() <= now; };
  const auto late = std::remove_if(clients_.begin(), clients_.end(), isLate);
  counts_.tooSlow += static_cast<std::uint64_t>(clients_.end() - late);
  clients_.erase(late, clients_.end());
}

void Server::acceptOne() {
  Descriptor socket(
      ::accept4(listener_.descriptor(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (socket.get() < 0) {
    const bool gone = errno == EAGAIN || errno == ECONNABORTED || errno == EINTR;
    acceptAgain_ = gone ? acceptAgain_ : Clock::now() + kPause;
  } else if (!mayAsk(socket.get(), settings_)) {
    ++counts_.refused;
  } else if (clients_.size() >= kMostClients) {
    ++counts_.tooMany;
  } else {
    ++counts_.accepted;
    clients_.emplace_back(std::move(socket), settings_.patience);
  }
}

}  // namespace qov::status
