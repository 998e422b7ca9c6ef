#ifndef QOV_LINK_INTERRUPTION_H
#define QOV_LINK_INTERRUPTION_H

#include <ace/Global_Macros.h>

#include <atomic>
#include <mutex>

namespace qov {

/// A flag that ends waits for a socket: it stays set until it is cleared. Part of CQOVLongSocket.
///
/// Thread: any, for all operations, with one Wait at a time.
/// Owns:   nothing.
/// Errors: none.
class Interruption {
 public:
  Interruption() = default;
  Interruption(const Interruption&) = delete;
  Interruption& operator=(const Interruption&) = delete;

  void set();
  void clear();
  bool isSet() const { return isSetAt(changes_); }

  /// How often the flag was set or cleared: for wasClearSince().
  unsigned changes() const { return changes_; }
  /// Whether the flag was clear at that count of changes and has been ever since.
  bool wasClearSince(unsigned changes) const { return changes_ == changes && !isSetAt(changes); }

  /// A wait for a socket, as long as it lives. set() ends it by shutting the socket down. Close the
  /// socket behind the wait only.
  class Wait {
   public:
    Wait(Interruption& interruption, ACE_HANDLE socket);
    ~Wait();
    Wait(const Wait&) = delete;
    Wait& operator=(const Wait&) = delete;

    /// Whether the flag is set, or was since the wait began.
    bool isInterrupted() const { return !interruption_.wasClearSince(changes_); }

    /// Ends the wait: set() leaves the socket alone from now on. False if it was interrupted.
    bool end();

   private:
    Interruption& interruption_;
    unsigned changes_;
  };

 private:
  static bool isSetAt(unsigned changes) { return changes % 2 != 0; }

  // A wait that nobody interrupts takes no lock. It says which socket it waits for, then looks at
  // the changes; set() makes the change, then looks for a socket. So the wait sees the change, or
  // set() the socket, or both. A wait whose socket set() has seen ends behind that change, finds
  // it, and lets set() finish with the socket.
  std::mutex mutex_;  ///< held by set() and clear()
  std::atomic<unsigned> changes_{0};
  std::atomic<ACE_HANDLE> waitedFor_{ACE_INVALID_HANDLE};
};

}  // namespace qov

#endif
