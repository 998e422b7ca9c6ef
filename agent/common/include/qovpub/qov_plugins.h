#ifndef QOVPUB_QOV_PLUGINS_H
#define QOVPUB_QOV_PLUGINS_H

#include <ace/Thread_Mutex.h>
#include <qovpub/qov_export.h>
#include <sys/types.h>

#include <atomic>
#include <map>

class ACE_DLL_Handle;

/// Binds its owner to a plug-in library that CQOV_Plugins has just opened.
///
/// Thread: called on the thread that calls CQOV_Plugins::open(), outside the registry's lock.
/// Owns:   nothing; the registry never keeps or deletes an operator.
/// Errors: by the result.
class QOV_EXPORT CQOV_PluginOperator {
 public:
  virtual ~CQOV_PluginOperator();

  /// Looks up in `dll` what the caller needs. False refuses the plug-in, which is closed again.
  virtual bool init(ACE_DLL_Handle* dll) = 0;
};

/// The process's open plug-in libraries under numbers that their users choose.
///
/// Thread: every operation from any thread. While close() runs no other thread uses the registry,
///         except as said there, and nobody uses a pointer to it afterwards. The frame closes it
///         when the modules have stopped.
/// Owns:   nothing but its table; the libraries belong to ACE's DLL manager, which counts how often
///         each one was opened.
/// Errors: reported by the result and one log line of debug kit 0; never thrown.
///
/// Closing a plug-in takes it out of ACE's count. At the last count ACE lets go of a library that
/// does not need libACE; its static destructors run then, on the thread that closes it. One that
/// needs libACE, as most do, stays in memory until the process ends. That is ACE's own policy and
/// is kept: what such a library has registered with ACE, an ACE_Singleton for one, is called when
/// the process ends, and crashes it when the library is gone. A plug-in that leaves nothing behind
/// in ACE says so itself and is let go of:
///
///     extern "C" int _get_dll_unload_policy() { return ACE_DLL_UNLOAD_POLICY_DEFAULT; }
///
/// Even then the dynamic loader keeps a library with unique symbols, which templates and inline
/// functions with static variables have unless they are hidden.
class QOV_EXPORT CQOV_Plugins {
 public:
  CQOV_Plugins();

  /// Calls clear().
  ~CQOV_Plugins();

  CQOV_Plugins(const CQOV_Plugins&) = delete;
  CQOV_Plugins& operator=(const CQOV_Plugins&) = delete;

  /// The registry, made by the first call; null only when there is no memory for it (errno ENOMEM).
  static CQOV_Plugins* instance();

  /// Destroys the registry, if there is one, one call after the other. A later instance() makes a
  /// new one.
  ///
  /// A plug-in's static destructor that runs meanwhile, and a static constructor on another thread
  /// that it has to wait for, get the registry that is being destroyed from instance(), without
  /// waiting: what they open is closed with the rest. A close() on the same thread does nothing
  /// then; one on another thread waits.
  static void close();

  /// Opens the library `name`, which ACE decorates and searches as it does a module's, lets `op`
  /// bind to it and registers it under `id`; several libraries may share one id.
  ///
  /// Returns false, with nothing registered and the library closed again, when `name` is null, the
  /// library cannot be opened, there is no memory to register it (errno ENOMEM) or `op` refuses it.
  /// An exception of `op` counts as its refusal; one that leaves a static constructor of the
  /// library ends the process (std::terminate), as the dynamic loader cannot be unwound.
  bool open(const char* name, CQOV_PluginOperator& op, u_int id);

  /// Closes and forgets every plug-in registered under `id`. No operator is told: whoever points
  /// into a library drops that before.
  void remove(u_int id);

  /// Closes and forgets the first plug-in, in the order of ids, that was opened as `name`.
  void remove(const char* name);

  /// Closes and forgets all plug-ins.
  void clear();

 private:
  static std::atomic<CQOV_Plugins*> pInstance_;
  /// Guards making and destroying the registry. The capitals are kept as they stand.
  static ACE_Thread_Mutex oSingLetonMutex_;

  ACE_Thread_Mutex lock_;
  /// Guarded by lock_.
  std::multimap<u_int, ACE_DLL_Handle*> plugins_;
};

#endif
