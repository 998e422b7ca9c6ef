#ifndef QOVPUB_QOV_APP_H
#define QOVPUB_QOV_APP_H

#include <ace/Event_Handler.h>
#include <qovpub/qov_export.h>

#include <memory>
#include <string>

class CQOV_Logging_Strategy;
namespace qov {
class StartReport;
}

/// What the signals of the process do: SIGINT and SIGTERM end the event loop, SIGUSR1 applies the
/// log configuration again, SIGPIPE and any other do nothing.
///
/// ACE runs handle_signal() in signal context, on whichever thread takes the signal. There it only
/// notes the signal and wakes the process reactor, which carries it out on the thread that runs its
/// event loop. Signals of one kind that come before that are carried out as one: a SIGUSR1 is
/// always followed by a reading of the configuration that begins after it.
///
/// Thread: constructor and destructor on the thread that runs the process reactor; handle_signal()
///         without a siginfo there, too; with one from signal context on any thread.
/// Owns:   nothing; the logging strategy is borrowed.
/// Errors: none; a reading of the configuration that fails leaves the log as it is.
class QOV_EXPORT SigintHandler : public ACE_Event_Handler {
 public:
  /// `logStrategy` is what SIGUSR1 initialises again; null for none. Prepares the process reactor
  /// for noted signals; of several handlers the one made last carries them out.
  explicit SigintHandler(CQOV_Logging_Strategy* logStrategy);
  ~SigintHandler() override;
  SigintHandler(const SigintHandler&) = delete;
  SigintHandler& operator=(const SigintHandler&) = delete;

  /// With a null `info`, as a program calls it: does what `signum` asks for, at once. With one, as
  /// the system calls it: notes `signum` for the process reactor. Always returns 0.
  int handle_signal(int signum, siginfo_t* info = nullptr, ucontext_t* context = nullptr) override;

 private:
  friend class CQOVapp;

  CQOV_Logging_Strategy* logStrategy_;
};

/// The frame of an agent process: its main builds one, calls init() and, when that returned 0,
/// event_loop_done(), and returns.
///
///     int main(int argc, char** argv) {
///       try {
///         CQOVapp app;
///         if (app.init(argc, argv) != 0) {
///           return 1;
///         }
///         app.event_loop_done();
///         return 0;
///       } catch (const CQOV_Exception& e) {
///         std::cerr << e.what() << '\n';
///         return 1;
///       }
///     }
///
/// Signals: init() blocks SIGINT, SIGTERM and SIGUSR1 while it works, so that the modules' threads
/// never take them. On every way out it gives the caller's signal mask back and delivers what came
/// meanwhile. From init() on a broken pipe (SIGPIPE) never ends the process, even when init()
/// fails; a handler that the program has set itself stays until init() succeeds. event_loop_done()
/// lets these three through to its thread while the loop runs, even where the starter of the
/// process has blocked or ignored them, and then gives the mask back. The thread that ends the
/// process by exit() or by returning from main has them and SIGPIPE blocked from the exit handlers
/// on. Programs that a module's thread starts inherit the three blocked: unblock them between fork
/// and exec.
///
/// A start that hangs is given up when a stop signal has waited for its end for 6 seconds: standard
/// error and the log name the module that is being loaded, and the process ends by the signal.
///
/// Exit handlers (std::atexit, static objects) run in the calling process of a daemon and in the
/// two between it and the daemon, too.
///
/// Do not call exit() on a module's thread, which cannot join itself: the modules are not stopped
/// then and their threads run while static objects are destroyed.
///
/// Thread: the main thread for everything. init() makes it the owner of the process reactor.
/// Owns:   the logging strategy. The modules belong to the loader, but the destructor stops those
///         that init() loaded and nobody unloaded.
/// Errors: by result. init() throws CQOV_Exception when the process configuration cannot be read,
///         for a daemon before it leaves its starter. Why a start fails stands on standard error, a
///         line for each reason, also what a daemon says; see init().
class QOV_EXPORT CQOVapp {
 public:
  CQOVapp();

  /// Stops the modules that are still there, frees the logging strategy and the debug kits. A log
  /// call after that makes the public kit anew. Modules that take longer than 450 seconds to stop,
  /// here or when the process exits, end the process as a shutdown that hangs does.
  ~CQOVapp();

  CQOVapp(const CQOVapp&) = delete;
  CQOVapp& operator=(const CQOVapp&) = delete;

  /// Starts the agent: becomes a daemon unless told not to, sets up the allocator, the debug kits,
  /// the log and the plug-in registry, loads the modules and registers the signals.
  ///
  /// Returns 0, or -1 when memory for the logging strategy runs out (errno ENOMEM), a module cannot
  /// be loaded, or "QOV_ROOT" is relative and a daemon is wanted. Failures to become a daemon, to
  /// configure the log or to register a signal are ignored. After -1 there is nothing to do but to
  /// end the process; modules that were loaded before the failing one run until this object is
  /// destroyed or the process exits.
  ///
  /// While it works, the errors that this thread logs through any kit and the library's warnings go
  /// to standard error, too. A process that shares its configuration directory with another one is
  /// warned; the lock for that lies on the directory itself and ends with the process.
  ///
  /// A daemon works in the directory "QOV_ROOT" (the file system's root when that is empty), with
  /// its descriptors 0 to 2 on /dev/null and all others closed: what the program opens before
  /// init() is lost, the process reactor (ACE_Reactor::instance()) included, so that must not be
  /// used before. Threads do not survive it either, and event_loop_done() would wait for those of
  /// ACE's thread manager for good: start none before init(). SIGHUP is ignored from then on. The
  /// file mode mask is the caller's. The calling process waits in init() for the daemon: it exits
  /// with status 0 when all modules run. It exits with 1 when init() fails in the daemon, when the
  /// daemon ends on the way, or when it takes longer than 450 seconds, for which it is ended. A
  /// daemon that has failed is gone by then, unless its end takes longer than 15 seconds. The
  /// daemon's complaints show on the caller's standard error, and in the system's log (facility
  /// daemon) where the daemon's own log goes nowhere. SIGINT and SIGTERM that the caller gets
  /// meanwhile go to the daemon; when the caller is killed the daemon goes on.
  int init(int argc, char** argv);

  /// Runs the process reactor's event loop until SIGINT or SIGTERM, then unloads the modules,
  /// closes the plug-in registry and waits for all threads of ACE's thread manager. A shutdown that
  /// has not ended 450 seconds after the signal ends the process (SIGABRT). Before that, standard
  /// error and the log name the module that is being stopped, and what each thread is doing.
  void event_loop_done();

  /// Reads the command line: "-n" anywhere, alone or among other letters ("-xn"), after "--" as
  /// well, clears bDeaemonize_. Words of two dashes ("--name") and everything else are ignored.
  /// `argv` keeps its order. Called by init().
  void parse_args(int argc, char** argv);

  /// Whether init() makes a daemon of the process; initially true. The name is kept as it stands.
  static bool bDeaemonize_;

 private:
  bool splitOffDaemon(qov::StartReport& report);
  int start(int argc, char** argv);
  void handleSignals();
  void dropLogStrategy();

  /// Lives until the process ends, since a signal may come at any time.
  static SigintHandler* signalHandler_;

  std::unique_ptr<CQOV_Logging_Strategy> logStrategy_;
  std::string programName_;
  bool modulesLoaded_ = false;
};

#endif
