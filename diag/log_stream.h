#ifndef QOV_DIAG_LOG_STREAM_H
#define QOV_DIAG_LOG_STREAM_H

#include <optional>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>

#include "diag/log_file.h"

namespace qov {

/// The stream through which every thread of the process writes to the log file.
///
/// ACE gives each thread a stream pointer of its own and lets new threads inherit it, so whatever
/// it points to must outlive them all: there is one stream, it is never freed, and the file behind
/// it changes (another name, rotation) without any thread noticing.
///
/// It is also the one owner of the file, its rotation and what is lost to it. ACE's log lock is its
/// lock: ACE holds it for every insertion, so that what goes to ACE directly is kept apart, too.
///
/// Thread: any. Who writes holds ACE's log lock (DestinationLock); the others take it themselves.
class LogStream : public std::ostream {
 public:
  LogStream(const LogStream&) = delete;
  LogStream& operator=(const LogStream&) = delete;

  /// The stream of this process; null until use() was called once.
  static LogStream* process();
  /// Makes the process's stream write to `path`, and makes the stream if there is none. A file
  /// that cannot be opened is tried again with every record. A newly created file is given to
  /// `owner`; the same number is used as group id.
  static LogStream& use(const std::string& path, std::optional<uid_t> owner);

  /// Why the last use() could not open the file, an errno value; 0 when it could.
  int openError() const { return openError_; }

  /// Writes one record. False if standard error has taken it instead.
  bool writeRecord(std::string_view record);

  /// Looks after the file's size, see LogFile::check(). Without memory the next check does it.
  void checkFile(long long maxBytes, int predecessors) noexcept;
  /// Removes rotated files, see LogFile::removeFrom().
  void removeFilesFrom(int number);
  /// In a forked child, which has no other thread, see LogFile::openAnew().
  void openFileAnew() { file_.openAnew(); }

 private:
  /// Unbuffered: each insertion of ACE's is a record or a part of one. Claims success always, since
  /// a stream that failed once would refuse everything from then on.
  class Buffer : public std::streambuf {
   public:
    explicit Buffer(LogStream& stream) : stream_(stream) {}

   protected:
    std::streamsize xsputn(const char* from, std::streamsize size) override;
    int_type overflow(int_type character) override;

   private:
    LogStream& stream_;
  };

  LogStream();
  ~LogStream() override = default;

  void reportLost();

  Buffer buffer_;
  LogFile file_;
  int openError_ = 0;
  unsigned long long lost_ = 0;  ///< records that the file did not take since it took the last one
};

}  // namespace qov

#endif
