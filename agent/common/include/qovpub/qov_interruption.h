#ifndef QOVPUB_QOV_INTERRUPTION_H
#define QOVPUB_QOV_INTERRUPTION_H

#include <ace/Global_Macros.h>

#include <atomic>
#include <mutex>

namespace qov {

/// A flag that ends waits: it stays set until it is cleared, and poll() sees it, too. Part of
/// CQOVLongSocket.
///
/// Thread: any, for all operations.
/// Owns:   a descriptor. Programs that the process starts do not inherit it.
/// Errors: none. If the system has no descriptor left, a wait under way does not end before its
///         time; all else works.
class Interruption {
 public:
  Interruption();
  ~Interruption();
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;

  void set();
  void clear();
  bool isSet() const { return isSetAt(changes_); }

  /// How often the flag was set or cleared: for wasClearSince().
  unsigned changes() const { return changes_; }
  /// Whether the flag was clear at that count of changes and has been ever since.
  bool wasClearSince(unsigned changes) const { return changes_ == changes && !isSetAt(changes); }

  /// Readable while the flag is set; for poll() only. Negative, which poll() skips, without one.
  ACE_HANDLE handle() const { return handle_; }

 private:
  static bool isSetAt(unsigned changes) { return changes % 2 != 0; }

  const ACE_HANDLE handle_;
  // Keeps flag and descriptor alike.
  std::mutex mutex_;
  std::atomic<unsigned> changes_{0};
};

}  // namespace qov

#endif
