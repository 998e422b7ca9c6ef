#include "task/event_ring.h"

#include <algorithm>

namespace qov {

namespace {

constexpr unsigned int kByte = 8;
constexpr unsigned int kHalfWord = 32;

/// A reader waits for so many of the newest events only, where a writer may be about to finish one.
constexpr std::uint64_t kUnfinished = 1024;

// Complete marks are even; 0 is that of a new slot.
constexpr std::uint64_t completeMark(std::uint64_t number) {
  return 2 * number + 2;
}

constexpr bool isBeingWritten(std::uint64_t mark) {
  return mark % 2 != 0;
}

}  // namespace

EventRing::Words EventRing::pack(const QOVTraceEvent& event) {
  std::uint64_t bytes = 0;
  for (const std::uint8_t byte :
       {static_cast<std::uint8_t>(event.step_), event.module_,
        static_cast<std::uint8_t>(event.reason_), event.type_, event.smid_, event.rmid_}) {
    bytes = bytes << kByte | byte;
  }
  const auto thread = static_cast<std::uint32_t>(event.thread_);
  return {static_cast<std::uint64_t>(event.time_.time_since_epoch().count()), event.opc_,
          std::uint64_t{thread} << kHalfWord | event.sn_, bytes};
}

QOVTraceEvent EventRing::unpack(const Words& words) {
  std::uint64_t bytes = words[3];
  const auto nextByte = [&bytes] {
    const auto byte = static_cast<std::uint8_t>(bytes);
    bytes >>= kByte;
    return byte;
  };
  QOVTraceEvent event;
  event.time_ = QOVTraceEvent::Clock::time_point(QOVTraceEvent::Clock::duration(words[0]));
  event.opc_ = words[1];
  event.thread_ = static_cast<pid_t>(words[2] >> kHalfWord);
  event.sn_ = static_cast<std::uint32_t>(words[2]);
  event.rmid_ = nextByte();
  event.smid_ = nextByte();
  event.type_ = nextByte();
  event.reason_ = static_cast<QOVDropReason>(nextByte());
  event.module_ = nextByte();
  event.step_ = static_cast<QOVTraceEvent::Step>(nextByte());
  return event;
}

void EventRing::Slot::write(std::uint64_t number, const Words& words) {
  std::uint64_t mark = mark_.load(std::memory_order_relaxed);
  if (isBeingWritten(mark) || mark > completeMark(number) ||
      !mark_.compare_exchange_strong(mark, completeMark(number) + 1, std::memory_order_acq_rel)) {
    return;
  }
  // A reader that sees one of these words sees the mark, too, when it looks again.
  for (std::size_t i = 0; i < words.size(); ++i) {
    words_[i].store(words[i], std::memory_order_release);
  }
  mark_.store(completeMark(number), std::memory_order_release);
}

bool EventRing::Slot::read(std::uint64_t number, Words& words) const {
  if (mark_.load(std::memory_order_acquire) != completeMark(number)) {
    return false;
  }
  for (std::size_t i = 0; i < words.size(); ++i) {
    words[i] = words_[i].load(std::memory_order_acquire);
  }
  return mark_.load(std::memory_order_relaxed) == completeMark(number);
}

EventRing::Place::Place(EventRing& ring) : ring_(ring), number_(ring.takeNumber()) {}

EventRing::Place::~Place() {
  ring_.writers_.fetch_sub(1, std::memory_order_release);
}

void EventRing::Place::fill(const QOVTraceEvent& event) {
  ring_.slots_[number_ % ring_.slots_.size()].write(number_, pack(event));
}

std::uint64_t EventRing::takeNumber() {
  writers_.fetch_add(1, std::memory_order_relaxed);
  return next_.fetch_add(1, std::memory_order_acq_rel);
}

QOVMessageTrace::Part EventRing::read(std::uint64_t from, std::size_t most) const {
  const std::uint64_t end = next();
  const bool isFinished = writers_.load(std::memory_order_acquire) == 0;
  const std::uint64_t waitsFrom = isFinished ? end : end - std::min(end, kUnfinished);
  QOVMessageTrace::Part part;
  part.next_ = std::max(from, end - std::min<std::uint64_t>(end, slots_.size()));
  part.lost_ = part.next_ - from;
  for (Words words; part.next_ < end && part.events_.size() < most; ++part.next_) {
    if (slots_[part.next_ % slots_.size()].read(part.next_, words)) {
      part.events_.push_back(unpack(words));
    } else if (part.next_ >= waitsFrom) {
      break;
    } else {
      ++part.lost_;
    }
  }
  return part;
}

}  // namespace qov
