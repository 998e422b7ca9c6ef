#ifndef QOVPUB_QOV_COMMON_DEBUGKIT_H
#define QOVPUB_QOV_COMMON_DEBUGKIT_H

#include <ace/Log_Msg.h>
#include <ace/Singleton.h>
#include <ace/Thread_Mutex.h>
#include <qovpub/detail/guard_state.h>
#include <qovpub/qov_export.h>

#include <cstdarg>
#include <cstddef>
#include <memory>
#include <sstream>
#include <string>

namespace qov {
class KitTable;
}  // namespace qov

/// A named logger: turns a message into one record of the fixed bracketed layout
///
///     [2026/11/13 19:50:30][65556][ERR][QOVPUBLIC][svc,377][][agent:140093214717696] message
///
/// and hands it to ACE logging at the level's priority. The fields are the local time, the log id,
/// the level's tag, the kit's name, function and line of the caller, an always empty field, process
/// name and thread id. A record is one line unless the message brings line breaks of its own; it is
/// written whole, never mixed with another thread's, whatever its length.
///
/// A level operation first tests the level in ACE's process-wide priority mask and returns at once
/// when it is off: nothing is built or formatted then. The `const char*` forms exist so that a
/// literal message costs no string either. errno is the same after the call as before it.
///
/// A child that fork() makes while other threads log may log, too; its records go where the
/// parent's go. fork() waits for the record that is being written, without a limit, also where a
/// log is stuck. Neither holds for _Fork(), nor for a fork from within a destination of ACE's while
/// it is written to. A child of several threads, and its own children, keep the offset from UTC of
/// the fork: summer time that begins later does not show. The C library's local time may hang in
/// such a child, and with it "%D" in what goes to ACE directly.
///
/// Threads that nobody has joined may log while main() returns and until the process has ended.
/// Their records are dropped from the moment at which this library is unloaded: main() has
/// returned and static objects are gone. A record that is being written then is finished, unless
/// none comes through for 3 seconds. Threads may start meanwhile. One that has logged and ends at
/// that very moment may crash: ACE takes its log lock at the end of such a thread, and deletes it
/// at its own. This is about kits: what a thread hands to ACE directly must be over when main()
/// returns.
///
/// Thread: any; name and id never change.
/// Owns:   nothing beyond its name. Kits in the registry belong to the registry.
/// Errors: none are reported and nothing is thrown. A message ends at its first NUL. A formatted
///         message is cut to 65,535 characters, and at a conversion that cannot be carried out
///         ("%n" among them: it is never obeyed). A null message is an empty one. A null function
///         ends the record in front of that field, though not the line: the newline is kept. A
///         thread that is cancelled while it logs goes when its record is written.
class QOV_EXPORT CQOVDebugKit {
 public:
  /// `name` stands in every record of the kit. Other kits may have the same name and id.
  CQOVDebugKit(const std::string& name, unsigned int id);
  /// No thread uses the kit any more, and no registry holds it.
  ~CQOVDebugKit();
  CQOVDebugKit(const CQOVDebugKit&) = delete;
  CQOVDebugKit& operator=(const CQOVDebugKit&) = delete;

  /// As given to the constructor. The reference holds as long as the kit.
  const std::string& name() const { return name_; }
  /// The key under which CQOVDebugKitMgr::add() registers the kit.
  unsigned int id() const { return id_; }

  /// Whether records of `priority` pass now: to spare a message that is costly to put together.
  static bool isOn(ACE_Log_Priority priority);

  /// @{
  /// Tag "DBG", priority LM_DEBUG. `logId` is the caller's own number for this record, `function`
  /// its `__FUNCTION__`, `line` its source line. The last form prints `format` with `args` as
  /// vprintf does; `args` is consumed only when the level is on.
  void debug(unsigned long long logId, const char* function, unsigned int line,
             const std::string& message) const;
  void debug(unsigned long long logId, const char* function, unsigned int line,
             const char* message) const;
  void debug(unsigned long long logId, const char* function, unsigned int line, const char* format,
             va_list args) const;
  /// @}

  /// @{
  /// Tag "INFO", priority LM_INFO.
  void info(unsigned long long logId, const char* function, unsigned int line,
            const std::string& message) const;
  void info(unsigned long long logId, const char* function, unsigned int line,
            const char* message) const;
  void info(unsigned long long logId, const char* function, unsigned int line, const char* format,
            va_list args) const;
  /// @}

  /// @{
  /// Tag "WARN", priority LM_WARNING.
  void warn(unsigned long long logId, const char* function, unsigned int line,
            const std::string& message) const;
  void warn(unsigned long long logId, const char* function, unsigned int line,
            const char* message) const;
  void warn(unsigned long long logId, const char* function, unsigned int line, const char* format,
            va_list args) const;
  /// @}

  /// @{
  /// Tag "ERR", priority LM_ERROR.
  void error(unsigned long long logId, const char* function, unsigned int line,
             const std::string& message) const;
  void error(unsigned long long logId, const char* function, unsigned int line,
             const char* message) const;
  void error(unsigned long long logId, const char* function, unsigned int line, const char* format,
             va_list args) const;
  /// @}

  /// @{
  /// Tag "CRI", priority LM_CRITICAL. Every level that CQOV_Logging_Strategy sets switches this
  /// priority off, so these records pass only where no strategy is in force.
  void critical(unsigned long long logId, const char* function, unsigned int line,
                const std::string& message) const;
  void critical(unsigned long long logId, const char* function, unsigned int line,
                const char* message) const;
  void critical(unsigned long long logId, const char* function, unsigned int line,
                const char* format, va_list args) const;
  /// @}

  /// @{
  /// Tag "TRACE", priority LM_TRACE; log id 18446744073709551615, no function, line 0.
  void trace(const std::string& message) const;
  void trace(const char* message) const;
  /// @}

  /// @{
  /// Appends one record, its newline included, to `out` whatever the priority mask says, and
  /// flushes `out`. The first form takes the message whole, NULs and all. A null `tag` or
  /// `function` leaves `out` in its bad state behind the fields before it, as inserting the null
  /// text would.
  void makeLog(std::ostringstream& out, unsigned long long logId, const char* tag,
               const char* function, unsigned int line, const std::string& message) const;
  void makeLog(std::ostringstream& out, unsigned long long logId, const char* tag,
               const char* function, unsigned int line, const char* format, va_list args) const
      __attribute__((format(printf, 7, 0)));
  /// @}

  /// The current second in local time, for example "2026/11/13 19:50:30".
  std::string makeLogTime() const;

 private:
  const std::string name_;
  const unsigned int id_;
};

/// The process's registry of debug kits by id; id 0 is the public kit "QOVPUBLIC", through which
/// the library itself logs.
///
/// Thread: any, for all operations. The destructor only when no other thread logs, close() when no
///         other one logs through a kit of a module.
/// Owns:   the kits that it holds; its destructor deletes them. A kit that remove() returned
///         belongs to the caller.
/// Errors: by results; std::bad_alloc without memory for the registry and its public kit. One
///         that lacks only the table of its map says so in one line of the log, and stays empty.
///
/// A pointer from find() stays good as long as its kit is registered. Whoever removes and deletes
/// a kit does so when no thread can still be using it: a module after its threads were joined.
/// Guards that stay open across such a deletion notice it and go on through whatever find() has.
class QOV_EXPORT CQOVDebugKitMgr {
 public:
  /// A registry that holds the public kit. A program needs only the one of instance().
  CQOVDebugKitMgr();
  /// Deletes the kits.
  ~CQOVDebugKitMgr();
  CQOVDebugKitMgr(const CQOVDebugKitMgr&) = delete;
  CQOVDebugKitMgr& operator=(const CQOVDebugKitMgr&) = delete;

  /// The process's registry, made on the first call and never destroyed by the library itself.
  static CQOVDebugKitMgr* instance();
  /// Deletes all kits of the process's registry but the public one, which is put back if it was
  /// removed. It stays because a detached thread may be logging through it.
  static void close();

  /// Registers `kit` under its own id and takes it over. Returns 1, or 0 with the kit left to the
  /// caller: null, id taken (first come, first served), no memory (errno ENOMEM).
  int add(CQOVDebugKit* kit);
  /// Takes the kit of `id` out and gives it to the caller; null with errno ENOENT if there is none.
  CQOVDebugKit* remove(unsigned int id);
  /// The kit of `id`, or the public kit when there is none; null only when that was removed, too.
  /// Leaves errno alone.
  CQOVDebugKit* find(unsigned int id);

 private:
  friend class qov::KitTable;

  const std::unique_ptr<qov::KitTable> table_;
};

// The library has the one registry, also for modules whose own symbols are hidden.
extern template class QOV_EXPORT ACE_Singleton<CQOVDebugKitMgr, ACE_Thread_Mutex>;
extern template class QOV_EXPORT ACE_Unmanaged_Singleton<CQOVDebugKitMgr, ACE_Thread_Mutex>;

/// Traces entry to and exit from a function, and whether it logged a warning or an error through
/// the guard on the way: "enter " + name + "..." and "leave " + name + ": OK" (or "NOK").
///
/// Thread: the one that made it.
/// Owns:   nothing; the kit is the registry's.
/// Errors: none; it writes nothing when no kit is to be had.
class QOV_EXPORT CQOVDebugKitGuard {
 public:
  /// Takes the kit registered under `kitId` (or the public one) and traces the entry into `name`,
  /// the function's full signature.
  CQOVDebugKitGuard(int kitId, const std::string& name);
  /// The same for a literal (or another constant array that outlives the guard), which costs no
  /// string: it is borrowed.
  template <std::size_t N>
  CQOVDebugKitGuard(int kitId, const char (&name)[N])
      : CQOVDebugKitGuard(kitId, qov::Borrowed{name}) {}
  /// The same for a text that may change or go meanwhile: it is copied, null counts as empty.
  template <class Text, class = qov::IfPassing<Text>>
  CQOVDebugKitGuard(int kitId, Text&& name) : CQOVDebugKitGuard(kitId, qov::copyOf(name)) {}
  /// Traces the way out.
  ~CQOVDebugKitGuard();
  CQOVDebugKitGuard(const CQOVDebugKitGuard&) = delete;
  CQOVDebugKitGuard& operator=(const CQOVDebugKitGuard&) = delete;

  /// @{
  /// Log through the kit like its operations of the same names, with the arguments that `format`
  /// asks for as printf does. warn() and error() also make the guard leave with "NOK", whether or
  /// not their level is on.
  void debug(unsigned long long logId, const char* function, unsigned int line, const char* format,
             ...) __attribute__((format(printf, 5, 6)));
  void info(unsigned long long logId, const char* function, unsigned int line, const char* format,
            ...) __attribute__((format(printf, 5, 6)));
  void warn(unsigned long long logId, const char* function, unsigned int line, const char* format,
            ...) __attribute__((format(printf, 5, 6)));
  void error(unsigned long long logId, const char* function, unsigned int line, const char* format,
             ...) __attribute__((format(printf, 5, 6)));
  /// @}

 private:
  CQOVDebugKitGuard(int kitId, qov::Borrowed name);

  qov::GuardState state_;
};

#endif
