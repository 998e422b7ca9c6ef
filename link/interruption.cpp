#include "link/interruption.h"

#include <sys/socket.h>

namespace qov {

void Interruption::set() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (!isSet()) {
    ++changes_;
    const ACE_HANDLE socket = waitedFor_;
    if (socket != ACE_INVALID_HANDLE) {
      ::shutdown(socket, SHUT_RDWR);
    }
  }
}

void Interruption::clear() {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (isSet()) {
    ++changes_;
  }
}

Interruption::Wait::Wait(Interruption& interruption, ACE_HANDLE socket)
    : interruption_(interruption) {
  interruption.waitedFor_ = socket;
  changes_ = interruption.changes_;
}

Interruption::Wait::~Wait() {
  if (interruption_.waitedFor_ != ACE_INVALID_HANDLE) {
    end();
  }
}

bool Interruption::Wait::end() {
  interruption_.waitedFor_ = ACE_INVALID_HANDLE;
  if (!isInterrupted()) {
    return true;
  }
  // set() may be about to shut the socket down.
  const std::lock_guard<std::mutex> lock(interruption_.mutex_);
  return false;
}

}  // namespace qov
