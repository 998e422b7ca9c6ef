#ifndef QOV_MODULE_MODULE_SHUTDOWN_H
#define QOV_MODULE_MODULE_SHUTDOWN_H

#include <mutex>

namespace qov {

/// Ends the modules that no unload() reached, those before the failing one of a failed load() and
/// those of a process whose main never ran the event loop; and when the process exits, also the
/// task managers that the program has made itself and not stopped.
///
/// Their threads must be gone before the static objects that they work with: those of the modules'
/// libraries, and singletons, ACE's process reactor among them.
///
/// Thread: any.
/// Owns:   nothing.
/// Errors: none.
class ModuleShutdown {
 public:
  /// Unloads the process's loader, then stops, joins and deletes what is left in its table without
  /// a log line of the loader. The libraries of those stay open. Like a shutdown in order, one that
  /// takes too long is aborted. Does nothing where mayStop() is false.
  static void stopAll();

  /// Makes the process stop all modules and managers when it ends by exit() or by returning from
  /// main. Exit handlers run in the reverse order of their registration: this one runs before the
  /// static objects made so far are destroyed, those of libraries opened so far included. A second
  /// call moves the one registration to the end.
  static void stopAtExit();

  /// Takes the registration back when no manager runs any more: one that stands behind what a
  /// library has registered keeps the C library from using that room again.
  static void forgetWhenIdle();

  /// False on a thread of a module (of one of its tasks, or in its thread group), which cannot join
  /// itself, and in a forked child of the process that made the modules, which has none of their
  /// threads.
  static bool mayStop();

  /// Whether this is such a child. No lock can be relied on there.
  static bool isForkedChild();

  /// Held by who takes a module out of the table, stops and deletes it, until that is done. exit()
  /// takes it and never gives it back: a thread that is unloading must not go on with what exit()
  /// destroys.
  static std::recursive_mutex turn;

 private:
  static void stopModules();
  /// The exit handler.
  static void end(void*);
};

}  // namespace qov

#endif
