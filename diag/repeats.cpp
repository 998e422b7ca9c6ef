#include "diag/repeats.h"

#include <algorithm>
#include <utility>

namespace qov {

void Repeats::Entry::forget() {
  originSize = 0;
  count = 0;
  lastUse = 0;
}

bool Repeats::count(const Record& record) {
  const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
    return entry.isUsed() && entry.message() == record.message() &&
           entry.origin() == record.origin();
  });
  if (found == entries_.end()) {
    return false;
  }
  ++found->count;
  found->lastUse = ++uses_;
  return true;
}

Repeats::Entry& Repeats::next() {
  const auto worth = [](const Entry& entry) {
    return std::make_pair(entry.count != 0, entry.lastUse);
  };
  return *std::min_element(
      entries_.begin(), entries_.end(),
      [&](const Entry& one, const Entry& other) { return worth(one) < worth(other); });
}

void Repeats::begin(Entry& entry, const Record& record, std::int64_t nowMs) {
  entry.originSize = record.origin().copy(entry.text.data(), kLongest);
  entry.messageSize =
      record.message().copy(entry.text.data() + entry.originSize, kLongest - entry.originSize);
  entry.form = record.form();
  entry.count = 0;
  entry.beginMs = nowMs;
  entry.lastUse = ++uses_;
}

}  // namespace qov
