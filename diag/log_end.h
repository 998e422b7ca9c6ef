#ifndef QOV_DIAG_LOG_END_H
#define QOV_DIAG_LOG_END_H

namespace qov {

/// One record on its way through ACE's logging, from the look for its thread's log object on.
/// Threads may still log when the process ends; this keeps them off what ACE destroys then.
///
/// Thread: any; one object, one thread.
class RecordUnderWay {
 public:
  RecordUnderWay();
  ~RecordUnderWay();
  RecordUnderWay(const RecordUnderWay&) = delete;
  RecordUnderWay& operator=(const RecordUnderWay&) = delete;

  /// False once the log has ended: the record is dropped.
  bool mayGo() const { return mayGo_; }

  /// In a forked child, which the other threads' records have not come into.
  static void forgetAll();

 private:
  const bool mayGo_;
};

/// Destroys ACE's log lock, its backends and the calling thread's log object, as ACE would do at
/// its end. ACE makes new ones for whoever logs afterwards.
void closeAceLog();

}  // namespace qov

#endif
