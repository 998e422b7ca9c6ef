#include "diag/record.h"

#include <pthread.h>

#include <qovpub/qov_utility.h>
#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>

#include "diag/record_time.h"

namespace qov {

namespace {

/// The process name, from the executable alone. CProcInfo derives the same text, but also reads
/// the configuration: it throws without one, tries again on each call, and would wait for itself
/// if something logged while it is being built. Taken once, as CProcInfo does: empty for good where
/// it cannot be read.
const std::string& processName() {
  static std::atomic<const std::string*> published{nullptr};
  const std::string* known = published.load(std::memory_order_acquire);
  if (known == nullptr) {
    auto name = std::make_unique<std::string>();
    CProcInfo::getProcName(*name);
    if (published.compare_exchange_strong(known, name.get(), std::memory_order_acq_rel)) {
      known = name.release();  // kept for good: records are written until the very end
    }
  }
  return *known;
}

/// A part of its records that a thread keeps for the next one. It has no destructor: a thread logs
/// until it is gone. And it is small: the memory of this kind is scarce where a library is opened
/// by a running program.
struct KeptPart {
  size_t size;
  std::array<char, 40> text;

  bool isEmpty() const { return size == 0; }
  void keep(const std::string& part) { size = part.copy(text.data(), text.size()); }
  std::string_view view() const { return {text.data(), size}; }
};

/// The time of the second in which this thread last logged, in its brackets. The zone is part of
/// the key, for a program that changes it; any other second, also an earlier one, is printed
/// afresh.
std::string_view timePart() {
  thread_local KeptPart kept;
  thread_local time_t second;
  thread_local long zone;
  const time_t now = time(nullptr);
  if (kept.isEmpty() || now != second || zone != ::timezone) {
    kept.keep("[" + recordTime(now) + "][");
    second = now;
    zone = ::timezone;
  }
  return kept.view();
}

/// Whether `c` may stand between "%" and the letter of its conversion.
bool isModifier(char c) {
  return c != '\0' && std::strchr("-+ #0'I*.123456789$hlqjzZtL", c) != nullptr;
}

/// Where the first conversion that stores through its argument ("%n", whatever stands between)
/// begins in `format`; null when there is none.
const char* findStore(const char* format) {
  for (const char* at = std::strchr(format, '%'); at != nullptr; at = std::strchr(at, '%')) {
    const char* conversion = at + 1;
    while (isModifier(*conversion)) {
      ++conversion;
    }
    if (*conversion == 'n') {
      return at;
    }
    at = *conversion == '\0' ? conversion : conversion + 1;
  }
  return nullptr;
}

}  // namespace

/// These come first to be inlined: a record has a dozen pieces of a few characters.
inline void Record::append(std::string_view piece) {
  makeRoomFor(piece.size());
  size_ += piece.copy(text_ + size_, piece.size());
}

inline void Record::append(unsigned long long number) {
  constexpr size_t kMostDigits = 20;
  makeRoomFor(kMostDigits);
  char* const at = text_ + size_;
  size_ += static_cast<size_t>(std::to_chars(at, at + kMostDigits, number).ptr - at);
}

void Record::add(std::string_view piece) {
  append(piece);
}

void Record::begin(char* room, size_t size, std::string_view kitName, unsigned long long logId,
                   const char* tag, const char* function, unsigned int line) {
  text_ = room;
  capacity_ = size;
  isComplete_ = appendFields(kitName, logId, tag, function, line);
  if (!isComplete_) {
    append("\n");
    lineSize_ = size_;
  }
  messageAt_ = size_;
}

/// False if the fields end in front of one that is null.
bool Record::appendFields(std::string_view kitName, unsigned long long logId, const char* tag,
                          const char* function, unsigned int line) {
  append(timePart());
  append(logId);
  append("][");
  if (tag == nullptr) {
    return false;
  }
  append(tag);
  append("][");
  append(kitName);
  append("][");
  if (function == nullptr) {
    return false;
  }
  append(function);
  append(",");
  append(line);
  append("][][");
  append(processName());
  append(":");
  append(static_cast<unsigned long long>(pthread_self()));
  append("] ");
  return true;
}

void Record::finish() {
  messageSize_ = size_ - messageAt_;
  if (isComplete_) {
    append("\n");
    lineSize_ = size_;
  }
}

void Record::print(const char* format, va_list args) {
  if (format == nullptr) {
    return;
  }
  if (const char* const store = findStore(format)) {
    printBounded(std::string(format, store).c_str(), args);
  } else {
    printBounded(format, args);
  }
}

void Record::printBounded(const char* format, va_list args) {
  constexpr size_t kSize = kLongestPrinted + 1;
  makeRoomFor(kSize);
  char* const at = text_ + size_;
  va_list again;
  va_copy(again, args);
  if (std::vsnprintf(at, kSize, format, args) < 0) {
    // What a failed call leaves behind the printed part is anybody's guess: make it NULs.
    std::memset(at, 0, kSize);
    static_cast<void>(std::vsnprintf(at, kSize, format, again));
    at[kLongestPrinted] = '\0';
  }
  va_end(again);
  size_ += std::strlen(at);
}

void Record::enlarge(size_t more) {
  capacity_ = std::max(2 * capacity_, size_ + more + 1);  // the newline follows
  std::string larger;
  larger.resize(capacity_);
  std::memcpy(larger.data(), text_, size_);
  large_.swap(larger);
  text_ = large_.data();
}

}  // namespace qov
