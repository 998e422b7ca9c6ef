#ifndef QOV_DIAG_LOG_SINK_H
#define QOV_DIAG_LOG_SINK_H

#include <ace/Log_Msg.h>
#include <ace/Log_Msg_Backend.h>

#include <optional>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>

#include "diag/log_file.h"
#include "diag/log_form.h"
#include "frame/env/failure.h"

namespace qov {

/// The process's one sink of records: it owns the log file, its rotation and the count of what is
/// lost to it, and takes what goes to ACE directly, too.
///
/// ACE has a stream pointer for each thread, which new ACE threads inherit. It points to the sink;
/// therefore the sink is never destroyed, and the file behind it changes (another name, rotation)
/// without any thread noticing. Other threads have no stream: those that std::thread started, and
/// those from before the log file was configured. ACE would drop what they log, so the sink adopts
/// them: for a kit's record when that is written, for others as ACE's backend.
///
/// Its lock is ACE's log lock. ACE holds it for each record of its own, and those go to the same
/// destinations; a lock of the sink's could only be taken inside that one.
///
/// Thread: any. write(), adopt() and openFileAnew() need the lock; the others take it themselves.
class LogSink : private std::streambuf, private ACE_Log_Msg_Backend {
 public:
  /// Holds the lock, which is recursive.
  class Lock {
   public:
    explicit Lock(ACE_Log_Msg& log = *ACE_Log_Msg::instance()) : log_(log) { log_.acquire(); }
    ~Lock() { log_.release(); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

   private:
    ACE_Log_Msg& log_;
  };

  LogSink(const LogSink&) = delete;
  LogSink& operator=(const LogSink&) = delete;

  static LogSink& process();

  /// Writes to `path` from now on, also what `log`'s thread logs. A file that cannot be opened is
  /// tried again with every record. A newly created file is given to `owner`; the same number is
  /// used as group id.
  void use(ACE_Log_Msg& log, const std::string& path, std::optional<uid_t> owner);
  /// Why the last use() could not open the file, an errno value; 0 when it could.
  int openError() const { return openError_; }
  /// The file that records go to; empty: standard error.
  std::string place() const;

  /// Makes the sink ACE's backend, unless the program has a backend of its own. ACE must not be
  /// opened without this: it would call a backend that the program has taken away.
  void beBackend(ACE_Log_Msg& log);
  /// True if the program installed its own ACE backend. No backend counts as ours: ACE forgets it
  /// at its end.
  bool hasForeignBackend() const;
  /// Gives the calling thread, whose object `log` is, the sink's stream if it has none. Before
  /// use() there is none to give.
  void adopt(ACE_Log_Msg& log);
  bool isStreamOf(const ACE_Log_Msg& log) const { return log.msg_ostream() == &stream_; }

  /// Writes one record. False if standard error has taken it instead.
  bool write(std::string_view record);

  /// Looks after the file's size, see LogFile::check(). What failed, with an empty cause when
  /// nothing has.
  Failure checkFile(long long maxBytes, int predecessors);
  /// Removes rotated files, see LogFile::removeFrom().
  void removeFilesFrom(int number);
  /// In a forked child, which has no other thread, see LogFile::openAnew().
  void openFileAnew() { file_.openAnew(); }

 private:
  LogSink() = default;
  ~LogSink() override = default;

  // What ACE inserts is a record or a part of one. Success is claimed always, since a stream that
  // failed once would refuse everything from then on.
  std::streamsize xsputn(const char* from, std::streamsize size) override;
  int_type overflow(int_type character) override;

  // Of the backend.
  int open(const ACE_TCHAR*) override { return 0; }
  int reset() override { return 0; }
  int close() override { return 0; }
  ssize_t log(ACE_Log_Record& record) override;

  void reportLost();
  void writeOthers(std::string_view text, LogForm form);

  std::ostream stream_{this};
  bool isInUse_ = false;
  LogFile file_;
  int openError_ = 0;
  unsigned long long lost_ = 0;  ///< records that the file did not take since it took the last one
};

}  // namespace qov

#endif
