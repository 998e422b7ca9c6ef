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
  if (!(output_.empty() ? receive() : flush())) {
    return State::kGone;
  }
  while (output_.empty()) {
    const std::size_t end = input_.find('\n');
    if (end == std::string::npos) {
      return input_.size() > kLongestRequest ? State::kMalformed : State::kGoesOn;
    }
    std::optional<std::string> reply = answer(std::string_view(input_).substr(0, end));
    if (!reply) {
      return State::kMalformed;
    }
    input_.erase(0, end + 1);
    output_ = std::move(*reply);
    if (!flush()) {
      return State::kGone;
    }
  }
  return State::kGoesOn;
}

bool Client::receive() {
  std::array<char, kLongestRequest + 1> bytes;
  const ssize_t count = ::recv(socket_.get(), bytes.data(), bytes.size() - input_.size(), 0);
  if (count > 0) {
    input_.append(bytes.data(), static_cast<std::size_t>(count));
    return true;
  }
  return count < 0 && wouldWait();
}

bool Client::flush() {
  const ssize_t count =
      ::send(socket_.get(), output_.data() + sent_, output_.size() - sent_, MSG_NOSIGNAL);
  if (count < 0) {
    return wouldWait();
  }
  sent_ += static_cast<std::size_t>(count);
  if (sent_ == output_.size()) {
    output_.clear();
    sent_ = 0;
    deadline_ = Clock::now() + patience_;
  }
  return true;
}

}  // namespace qov::status
