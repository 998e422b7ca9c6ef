#ifndef QOVPUB_QOV_MODULE_LOADER_H
#define QOVPUB_QOV_MODULE_LOADER_H

#include <ace/Singleton.h>
#include <ace/Thread_Mutex.h>
#include <qovpub/qov_export.h>
#include <sys/types.h>

#include <list>
#include <memory>
#include <string>

class ACE_Message_Block;

namespace qov {
class ModuleShutdown;
}

/// Finds, loads and unloads the modules of this process and routes message blocks between them.
///
/// The one loader of a process is `ACE_Singleton<CQOV_Module_Loader,
/// ACE_Thread_Mutex>::instance()`.
///
/// A module is a shared library with the C function `QOV_CreateModule`, which takes nothing and
/// returns a new CQOV_TaskMgr (null on failure) that the loader then owns; QOV_MODULE
/// (qov_module.h) writes it. The manager's gid, 0 to 255 and unique in the process, is the number
/// that messages name the module by (`pid` below).
///
/// Thread: load() and unload() from the main thread; sendMsg() and sendMsg2All() from any thread,
///         but not from a module's init() on the thread that runs it: load() holds the table then.
/// Owns:   the task managers of the loaded modules; the libraries belong to ACE's DLL manager.
/// Errors: reported by the result and one log line of debug kit 0, which load() follows by one that
///         names the file and the cause; nothing but the constructor throws. A lock that cannot be
///         taken leaves its code in errno and the operation goes on without it.
class QOV_EXPORT CQOV_Module_Loader {
 public:
  /// Starts with an empty table. Throws std::bad_alloc.
  CQOV_Module_Loader();

  /// Calls unload(), then stops what a failed load() left running. Nothing is stopped or deleted
  /// where only exit() brings a module's loader to its end: on a module's own thread, which cannot
  /// join itself, and in a forked child, which has none of the modules' threads.
  ~CQOV_Module_Loader();

  CQOV_Module_Loader(const CQOV_Module_Loader&) = delete;
  CQOV_Module_Loader& operator=(const CQOV_Module_Loader&) = delete;

  /// Loads and initialises every module that getModuleList() names, in that order.
  ///
  /// Returns true when all of them run, at once when they already did. On the first failure it
  /// returns false: the modules before the failing one stay in the table and keep running, unload()
  /// leaves them alone, and they are stopped and joined when the process ends. The failing module's
  /// library stays open. Without memory it may also fail without a log line (errno ENOMEM).
  ///
  /// When the process ends, by a return from main or by exit() on a thread that is not a module's,
  /// modules that still run are stopped first. Static objects that were made before load() returned
  /// are destroyed after that. Those that are made later, such as the static variable of a function
  /// that a worker or createTask() calls first, may go while the modules run: a module makes them
  /// in its constructor or init(), or never destroys them.
  ///
  /// A bare module name is handed to ACE, which tries `lib<name>.so`, `<name>.so` and `<name>` on
  /// the dynamic loader's own search path (LD_LIBRARY_PATH, run path); no directory is added. A
  /// library's symbols are global: what is opened later finds them before its own of the same name,
  /// unless it hides these (qov_module.h). If a module's manager, worker or static task is of a
  /// class from another module's library for that reason, one warning for the module names both.
  /// An exception of its entry function or its init() counts as a module's failure. One that leaves
  /// a static constructor of its library ends the process (std::terminate): the dynamic loader
  /// cannot be unwound.
  ///
  /// A module that cannot go on returns false. Where its init() calls exit() all the same, the
  /// modules, this one included, are stopped and deleted before the static objects of their
  /// libraries go; static objects that init() itself has made first, such as those of its
  /// functions, are gone by then. _exit() leaves all of that out.
  bool load();

  /// Stops, joins and deletes the loaded modules in the order of their gids and closes their
  /// libraries. Does nothing unless load() succeeded; a second call does nothing.
  ///
  /// Each module leaves the table before it is stopped: a block sent to it from then on is refused
  /// as for a gid that never existed. Closing takes a library out of ACE's count; ACE leaves those
  /// that depend on libACE, as modules do, in memory until the process ends.
  void unload();

  /// Puts `mb` into the queue of module `pid` (0 to 255).
  ///
  /// Returns 0 and hands `mb` over, or returns -1 and leaves `mb` with the caller; errno is then
  /// EHOSTUNREACH (no module has that id) or what CQOV_TaskMgr::putq() leaves. The one second
  /// that it passes to CQOV_TaskMgr::putq() is an absolute time long gone: a full queue refuses at
  /// once, so that a leader never waits for another module.
  int sendMsg(u_short pid, ACE_Message_Block* mb);

  /// Puts a deep copy of `mb` into the queue of every module, in the order of their gids, then
  /// frees `mb`.
  ///
  /// A package block (MB_DATA, 8 bytes, a CQOV_MsgPackage pointer that is not null) is copied with
  /// its package, so that each receiver owns one, and without a continuation; the caller's package
  /// is freed with `mb`. Each copy is addressed to the module that receives it (RPID and RMID),
  /// whatever the caller wrote there, the sender's own module included. Nobody waits for answers to
  /// a broadcast request: the sender's leader drops them with a warning. Only plain CQOV_MsgPackage
  /// objects are copied; one of a derived class is refused, since a copy would lose that part. Any
  /// other block is a plain clone.
  ///
  /// A queue that refuses its copy is logged and passed over. When a copy cannot be made the
  /// broadcast ends there and `mb`, with its package, stays with the caller; the modules before
  /// that one have their copies.
  void sendMsg2All(ACE_Message_Block* mb);

  /// Appends the names of this process's modules to `names`: the part before ".mod" of the file
  /// names in the process configuration directory, in the order of the directory.
  ///
  /// A name counts only if its first ".mod" is its end and something stands before it. Other names
  /// with ".mod" in them are passed over with a warning. The files' contents are never read. Adds
  /// nothing when the directory cannot be opened or has no marker, which is logged, and when there
  /// is no memory for the names (errno ENOMEM).
  void getModuleList(std::list<std::string>& names) const;

 private:
  friend class qov::ModuleShutdown;

  class ModuleTable;
  const std::unique_ptr<ModuleTable> table_;
};

// The library has the one loader, also for modules whose own symbols are hidden.
extern template class QOV_EXPORT ACE_Singleton<CQOV_Module_Loader, ACE_Thread_Mutex>;

#endif
