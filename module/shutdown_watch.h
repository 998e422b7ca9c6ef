#ifndef QOV_MODULE_SHUTDOWN_WATCH_H
#define QOV_MODULE_SHUTDOWN_WATCH_H

namespace qov {

/// Ends the process (SIGABRT) when a stop of modules hangs: 450 seconds after the first of those
/// under way has begun, unless they are over by then. What hangs is told before that, on standard
/// error and in the log: the open steps and what each thread is at. Five seconds later the process
/// is aborted in any case.
///
/// A stop lasts as long as one of these lives. One that a stop signal asks for begins with the
/// signal, whatever the main thread is at. Only seconds count for which the process runs: one that
/// is stopped meanwhile (SIGSTOP, a debugger) loses a single one.
///
/// The work is done by two threads of the process, which take no signals, sleep until a stop and
/// are never joined. No thread can begin while another one waits in the dynamic loader for a
/// library's file, so a frame makes them before it loads modules. Without a frame the first stop
/// makes them; while a thread waits like that, that stop hangs unwatched.
///
/// Thread: made and destroyed by one thread, any number at once.
/// Owns:   nothing.
/// Errors: without the threads, which standard error tells, a stop goes on unwatched.
class ShutdownWatch {
 public:
  static constexpr unsigned kSeconds = 450;

  ShutdownWatch();
  ~ShutdownWatch();

  ShutdownWatch(const ShutdownWatch&) = delete;
  ShutdownWatch& operator=(const ShutdownWatch&) = delete;

  /// Makes the threads, if the process has none.
  static void prepare();

  /// The same, and heeds stop signals until the next one of these is gone.
  static void heedSignals();

  /// For a stop signal that has come and is not carried out.
  static void dropSignal();

  /// Async-signal-safe.
  static void stopSignalCame();
};

}  // namespace qov

#endif
