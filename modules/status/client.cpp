#include "modules/status/client.h"

#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <utility>

namespace qov::status {
namespace {

bool wouldWait() {
  return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

}  // namespace

Client::Client(Descriptor socket, Clock::duration patience)
    : socket_(std::move(socket)), patience_(patience), deadline_(Clock::now() + patience) {}

short Client::events() const {
  return output_.empty() ? POLLIN : POLLOUT;
}

Client::State Client::advance(const Answer& answer) {
  if (!output_.empty()) {
    return flush();
  }
  const State state = hasRequest() ? State::kGoesOn : receive();
  if (state != State::kGoesOn || !hasRequest()) {
    return state;
  }
  const std::size_t end = input_.find('\n');
  std::optional<std::string> reply = answer(std::string_view(input_).substr(0, end));
  if (!reply) {
    return State::kMalformed;
  }
  input_.erase(0, end + 1);
  output_ = std::move(*reply);
  deadline_ = Clock::now() + patience_;
  return flush();
}

Client::State Client::receive() {
  std::array<char, kLongestRequest + 1> bytes;
  const ssize_t count = ::recv(socket_.get(), bytes.data(), bytes.size() - input_.size(), 0);
  if (count > 0) {
    input_.append(bytes.data(), static_cast<std::size_t>(count));
    return hasRequest() || input_.size() <= kLongestRequest ? State::kGoesOn : State::kMalformed;
  }
  if (count < 0 && wouldWait()) {
    return State::kGoesOn;
  }
  // An error: it has left its last answer unread.
  return count == 0 && input_.empty() ? State::kGone : State::kCutOff;
}

Client::State Client::flush() {
  const ssize_t count =
      ::send(socket_.get(), output_.data() + sent_, output_.size() - sent_, MSG_NOSIGNAL);
  if (count < 0) {
    return wouldWait() ? State::kGoesOn : State::kCutOff;
  }
  sent_ += static_cast<std::size_t>(count);
  if (sent_ == output_.size()) {
    output_.clear();
    sent_ = 0;
    deadline_ = Clock::now() + patience_;
  }
  return State::kGoesOn;
}

}  // namespace qov::status
