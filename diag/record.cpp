#include "diag/record.h"

#include <pthread.h>

#include <qovpub/qov_utility.h>
#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstring>
#include <ctime>
#include <memory>

#include "diag/record_time.h"

namespace qov {

namespace {

// What is always inlined here has two users, and the bracketed form must not pay for that.

/// The process name, from the executable alone. CProcInfo derives the same text, but also reads
/// the configuration: it throws without one, tries again on each call, and would wait for itself
/// if something logged while it is being built. Taken once, as CProcInfo does: empty for good where
/// it cannot be read.
[[gnu::always_inline]] inline const std::string& processName() {
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

/// The length of recordOffset().
constexpr size_t kOffset = 6;

/// What a thread keeps for its next record: "[2026/11/13 19:50:30][+01:00". It has no destructor: a
/// thread logs until it is gone. And it is small: the memory of this kind is scarce where a library
/// is opened by a running program.
struct KeptTime {
  size_t size;
  std::array<char, 40> text;

  bool isEmpty() const { return size == 0; }
  void add(std::string_view part) { size += part.copy(text.data() + size, text.size() - size); }
  std::string_view view() const { return {text.data(), size}; }
};

/// The time of the second in which this thread last logged. The zone is part of the key, for a
/// program that changes it; any other second, also an earlier one, is printed afresh.
[[gnu::always_inline]] inline std::string_view keptTime() {
  thread_local KeptTime kept;
  thread_local time_t second;
  thread_local long zone;
  const time_t now = time(nullptr);
  if (kept.isEmpty() || now != second || zone != ::timezone) {
    kept.size = 0;
    kept.add("[");
    kept.add(recordTime(now).view());
    kept.add("][");
    kept.add(recordOffset(now).view());
    second = now;
    zone = ::timezone;
  }
  return kept.view();
}

/// In its brackets, and the one that follows.
[[gnu::always_inline]] inline std::string_view timePart() {
  std::string_view time = keptTime();
  time.remove_suffix(kOffset);
  return time;
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

void Record::addNumber(unsigned long long number) {
  append(number);
}

void Record::begin(char* room, size_t size, std::string_view kitName, unsigned long long logId,
                   const char* tag, const char* function, unsigned int line, LogForm form) {
  text_ = room;
  capacity_ = size;
  form_ = form;
  if (form.has(LogForm::kJson)) {
    appendJsonFields(kitName, logId, tag, function, line);
    isComplete_ = true;
  } else {
    isComplete_ = appendFields(kitName, logId, tag, function, line);
    if (!isComplete_) {
      append("\n");
      lineSize_ = size_;
    }
  }
  messageAt_ = size_;
}

void Record::addTime() {
  append(timePart());
}

void Record::appendJsonTime() {
  append("{\"time\":\"");
  const std::string_view time = keptTime();
  const size_t at = size_;
  append(time.substr(1, time.size() - kOffset - 3));
  std::replace(text_ + at, text_ + size_, '/', '-');
  std::replace(text_ + at, text_ + size_, ' ', 'T');
  append(time.substr(time.size() - kOffset));
  append("\"");
}

void Record::appendJsonProcess() {
  appendJsonText(",\"process\":", std::string_view(processName()));
}

/// False if the fields end in front of one that is null.
bool Record::appendFields(std::string_view kitName, unsigned long long logId, const char* tag,
                          const char* function, unsigned int line) {
  append(timePart());
  originAt_ = size_;
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
  threadAt_ = size_;
  append(static_cast<unsigned long long>(pthread_self()));
  append("] ");
  return true;
}

void Record::finish() {
  if (form_.rewrites()) {
    escapeFrom(messageAt_);
    end();
  } else if (isComplete_) {
    append("\n");
    endSize_ = 1;
    lineSize_ = size_;
  }
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
