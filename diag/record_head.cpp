#include "diag/record_head.h"

#include <pthread.h>

#include <qovpub/qov_utility.h>
#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
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

/// The time text of the second in which this thread last logged. The zone is part of the key, for
/// a program that changes it; any other second, also an earlier one, is printed afresh.
struct SecondText {
  time_t second;
  long zone;
  size_t size;
  std::array<char, 40> text;
};

thread_local SecondText lastSecond;

bool isCurrent(const SecondText& cached, time_t now) {
  return cached.size != 0 && cached.second == now && cached.zone == ::timezone;
}

void refresh(SecondText& cached, time_t now) {
  const std::string text = recordTime(now);
  cached.size = std::min(text.size(), cached.text.size());
  std::memcpy(cached.text.data(), text.data(), cached.size);
  cached.second = now;
  cached.zone = ::timezone;
}

}  // namespace

RecordHead::RecordHead(const std::string& kitName, unsigned long long logId, const char* tag,
                       const char* function, unsigned int line) {
  append("[");
  appendTime();
  append("][");
  append(logId);
  append("][");
  if (tag == nullptr) {
    return;
  }
  append(tag);
  append("][");
  append(kitName);
  append("][");
  if (function == nullptr) {
    return;
  }
  append(function);
  append(",");
  append(line);
  append("][][");
  append(processName());
  append(":");
  append(static_cast<unsigned long long>(pthread_self()));
  append("] ");
  complete_ = true;
}

std::string_view RecordHead::text() const {
  return large_.empty() ? std::string_view(small_, size_) : std::string_view(large_);
}

void RecordHead::append(std::string_view piece) {
  if (large_.empty() && size_ + piece.size() <= kSmall) {
    std::copy(piece.begin(), piece.end(), small_ + size_);
    size_ += piece.size();
    return;
  }
  if (large_.empty()) {
    large_.assign(small_, size_);
  }
  large_.append(piece);
}

void RecordHead::append(unsigned long long number) {
  std::array<char, 20> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  append(std::string_view(digits.data(), static_cast<size_t>(end - digits.data())));
}

void RecordHead::appendTime() {
  SecondText& cached = lastSecond;
  const time_t now = time(nullptr);
  if (!isCurrent(cached, now)) {
    refresh(cached, now);
  }
  append(std::string_view(cached.text.data(), cached.size));
}

}  // namespace qov
