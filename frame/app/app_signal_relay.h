#ifndef QOV_FRAME_APP_APP_SIGNAL_RELAY_H
#define QOV_FRAME_APP_APP_SIGNAL_RELAY_H

#include <ace/Event_Handler.h>

class SigintHandler;

namespace qov {

/// Carries signals out of signal context into the process reactor's event loop.
///
/// Thread: note() in signal context on any thread; everything else on the thread that runs the
///         process reactor, unless it says otherwise.
/// Owns:   an event descriptor, for as long as the process lives: a signal may come at any time.
/// Errors: without a descriptor signals are noted, but only those that interrupt the reactor's wait
///         wake it.
class SignalRelay : public ACE_Event_Handler {
 public:
  static SignalRelay& instance();

  /// Has the process reactor listen. Early: once modules have taken all descriptors, or all low
  /// ones, it is too late. Done again it changes nothing.
  void listen();

  /// Makes `handler` the one that carries out noted signals, beginning with those that come from
  /// now on, and listens.
  void attach(SigintHandler& handler);

  /// Forgets `handler`, if it is the one, and leaves the process reactor.
  void detach(const SigintHandler& handler);

  /// Notes `signum` and wakes the reactor. Async-signal-safe; errno is kept. Signals other than
  /// SIGINT, SIGTERM and SIGUSR1 have nothing to carry out.
  static void note(int signum);

  ACE_HANDLE get_handle() const override;

  int handle_input(ACE_HANDLE handle) override;

  /// Carries out the noted signals: the log first, since after a stop nothing more is carried out.
  void carryOut();

 private:
  SignalRelay() = default;

  void openEvent();

  SigintHandler* handler_ = nullptr;
};

}  // namespace qov

#endif
