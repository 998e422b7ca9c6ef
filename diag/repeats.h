#ifndef QOV_DIAG_REPEATS_H
#define QOV_DIAG_REPEATS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "diag/record.h"

namespace qov {

/// The last few records that differ, and how often each came again within its second, which begins
/// with the record that was written. Two records are the same if only time and thread differ.
///
/// Eight are enough for what repeats in turn: a refused exchange has three kinds, and one that has
/// the request in it. A record that is too long counts as new each time.
///
/// Thread: not locked; used under the lock of LogSink.
/// Owns:   copies of the records' texts; takes no memory beyond itself.
/// Errors: none.
class Repeats {
 public:
  /// Origin and message together.
  static constexpr std::size_t kLongest = 1024;
  static constexpr std::int64_t kWindowMs = 1000;

  /// One of the records.
  struct Entry {
    std::string_view origin() const { return {text.data(), originSize}; }
    std::string_view message() const { return {text.data() + originSize, messageSize}; }
    bool isUsed() const { return originSize != 0; }
    bool isOver(std::int64_t nowMs) const { return nowMs - beginMs >= kWindowMs; }
    void forget();

    unsigned long long count = 0;  ///< how often it came again, and was not written
    LogForm form;
    std::int64_t beginMs = 0;
    std::uint64_t lastUse = 0;  ///< greater is later
    std::size_t originSize = 0;
    std::size_t messageSize = 0;
    std::array<char, kLongest> text{};  ///< Record::origin() and message()
  };

  static bool isTooLong(const Record& record) {
    return record.origin().size() + record.message().size() > kLongest;
  }

  /// Counts a record that has an entry; false if it has none.
  bool count(const Record& record);
  /// Where a new record goes: an unused entry; else one that has not come again, so that records
  /// with a serial number in them do not push out what floods the log; else any. Of several the one
  /// that came last the longest time ago.
  Entry& next();
  void begin(Entry& entry, const Record& record, std::int64_t nowMs);

  std::array<Entry, 8>& entries() { return entries_; }

 private:
  std::array<Entry, 8> entries_;
  std::uint64_t uses_ = 0;
};

}  // namespace qov

#endif
