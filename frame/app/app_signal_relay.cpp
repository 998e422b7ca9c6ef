#include "frame/app/app_signal_relay.h"

#include <ace/Reactor.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <new>

#include <qovpub/qov_app.h>

#include "module/shutdown_watch.h"

namespace qov {
namespace {

// What a signal handler touches: only these, all of them lock-free.
std::atomic<int> eventDescriptor{-1};
std::atomic<bool> stopNoted{false};
std::atomic<bool> reloadNoted{false};
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<bool>::is_always_lock_free,
              "a signal handler must not lock");

}  // namespace

SignalRelay& SignalRelay::instance() {
  // Never destroyed: the process reactor keeps it until its own end.
  alignas(SignalRelay) static unsigned char place[sizeof(SignalRelay)];
  static SignalRelay& relay = *new (place) SignalRelay;
  return relay;
}

void SignalRelay::attach(SigintHandler& handler) {
  stopNoted.store(false);
  reloadNoted.store(false);
  ShutdownWatch::dropSignal();
  handler_ = &handler;
  listen();
}

void SignalRelay::listen() {
  openEvent();
  if (get_handle() != ACE_INVALID_HANDLE) {
    ACE_Reactor::instance()->register_handler(this, ACE_Event_Handler::READ_MASK);
  }
}

void SignalRelay::detach(const SigintHandler& handler) {
  if (handler_ != &handler) {
    return;
  }
  handler_ = nullptr;
  ACE_Reactor::instance()->remove_handler(
      this, ACE_Event_Handler::READ_MASK | ACE_Event_Handler::DONT_CALL);
}

void SignalRelay::openEvent() {
  if (eventDescriptor.load() < 0) {
    eventDescriptor.store(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
  }
}

void SignalRelay::note(int signum) {
  const int formerErrno = errno;
  if (signum == SIGINT || signum == SIGTERM) {
    // In this order: whoever drops the note in between has the watch forget it, too.
    ShutdownWatch::stopSignalCame();
    stopNoted.store(true);
  } else if (signum == SIGUSR1) {
    reloadNoted.store(true);
  } else {
    return;
  }
  const std::uint64_t one = 1;
  // A counter that is full (EAGAIN) has woken the reactor already.
  static_cast<void>(!::write(eventDescriptor.load(), &one, sizeof one));
  errno = formerErrno;
}

ACE_HANDLE SignalRelay::get_handle() const {
  return eventDescriptor.load();
}

int SignalRelay::handle_input(ACE_HANDLE handle) {
  // Emptied before the notes are taken: a signal in between is taken now and wakes once more for
  // nothing, one after that wakes again.
  std::uint64_t count = 0;
  static_cast<void>(!::read(handle, &count, sizeof count));
  carryOut();
  return 0;
}

void SignalRelay::carryOut() {
  const bool reload = reloadNoted.exchange(false);
  const bool stop = stopNoted.exchange(false);
  if (handler_ != nullptr && reload) {
    handler_->handle_signal(SIGUSR1);
  }
  if (handler_ != nullptr && stop) {
    handler_->handle_signal(SIGINT);
  }
}

}  // namespace qov
