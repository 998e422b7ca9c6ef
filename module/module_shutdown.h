#ifndef QOV_MODULE_MODULE_SHUTDOWN_H
#define QOV_MODULE_MODULE_SHUTDOWN_H

namespace qov {

/// Ends the modules that no unload() reached: those before the failing one of a failed load(), and
/// those of a process whose main never ran the event loop.
///
/// Their threads must be gone before the first static object is: they run code of libraries and use
/// singletons that the end of the process takes away.
///
/// Thread: any; on a thread of a module nothing is stopped, since it cannot join itself.
/// Owns:   nothing.
/// Errors: none.
class ModuleShutdown {
 public:
  /// Unloads the process's loader, then stops, joins and deletes what is left in its table without
  /// a log line of the loader. The libraries of those stay open. Like a shutdown in order, one that
  /// takes too long is aborted.
  static void stopAll();

  /// Makes stopAll() run when the process ends by exit() or by returning from main. Exit handlers
  /// run in the reverse order of their registration: registered after a module's library was opened
  /// it runs before that library's static objects are destroyed. A second call moves the one
  /// registration to the end.
  static void stopAtExit();
};

}  // namespace qov

#endif
