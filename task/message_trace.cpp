#include "task/message_trace.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <tuple>

namespace qov {

namespace {

using Step = QOVTraceEvent::Step;

/// An event as whole words, since a reader may look while one is written.
using Words = std::array<std::uint64_t, 4>;

constexpr unsigned int kByte = 8;
constexpr unsigned int kHalfWord = 32;

Words pack(const QOVTraceEvent& event) {
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

QOVTraceEvent unpack(const Words& words) {
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
  event.step_ = static_cast<Step>(nextByte());
  return event;
}

/// The room of each kRoom-th event. Who writes marks it, fills it and marks it as complete; who
/// reads looks at the mark before and after.
class Slot {
 public:
  /// Gives the event up while another thread, which a whole round has overtaken, still writes here.
  void write(std::uint64_t number, const Words& words) {
    std::uint64_t mark = mark_.load(std::memory_order_relaxed);
    if (isBeingWritten(mark) ||
        !mark_.compare_exchange_strong(mark, completeMark(number) + 1, std::memory_order_acq_rel)) {
      return;
    }
    for (std::size_t i = 0; i < words.size(); ++i) {
      words_[i].store(words[i], std::memory_order_release);
    }
    mark_.store(completeMark(number), std::memory_order_release);
  }

  /// False if another event stands here, or an unfinished one.
  bool read(std::uint64_t number, Words& words) const {
    if (mark_.load(std::memory_order_acquire) != completeMark(number)) {
      return false;
    }
    for (std::size_t i = 0; i < words.size(); ++i) {
      words[i] = words_[i].load(std::memory_order_acquire);
    }
    return mark_.load(std::memory_order_relaxed) == completeMark(number);
  }

 private:
  // Complete marks are even; 0 is that of a new slot.
  static constexpr std::uint64_t completeMark(std::uint64_t number) { return 2 * number + 2; }
  static constexpr bool isBeingWritten(std::uint64_t mark) { return mark % 2 != 0; }

  std::atomic<std::uint64_t> mark_{0};
  std::array<std::atomic<std::uint64_t>, std::tuple_size_v<Words>> words_{};
};

/// The last events.
///
/// Thread: any.
class Ring {
 public:
  void add(const QOVTraceEvent& event) {
    const std::uint64_t number = next_.fetch_add(1, std::memory_order_relaxed);
    slots_[number % slots_.size()].write(number, pack(event));
  }

  std::uint64_t next() const { return next_.load(std::memory_order_acquire); }

  bool read(std::uint64_t number, Words& words) const {
    return slots_[number % slots_.size()].read(number, words);
  }

 private:
  std::atomic<std::uint64_t> next_{0};
  std::array<Slot, QOVMessageTrace::kRoom> slots_{};
};

/// Among so many of the newest events one that cannot be read may be about to be finished.
constexpr std::uint64_t kUnfinished = 1024;

/// Stays once it is made: a thread may be writing into it at any time.
std::atomic<Ring*> ring{nullptr};

constexpr int kAllModules = -1;
std::atomic<int> chosenModule{kAllModules};

bool isChosen(const TracedMessage& message, unsigned int module) {
  const int chosen = chosenModule.load(std::memory_order_relaxed);
  return chosen == kAllModules || chosen == message.smid_ || chosen == message.rmid_ ||
         chosen == static_cast<int>(module);
}

Ring& makeRing() {
  auto made = std::make_unique<Ring>();
  Ring* known = nullptr;
  return ring.compare_exchange_strong(known, made.get(), std::memory_order_acq_rel)
             ? *made.release()
             : *known;
}

}  // namespace

void trace(Step step, unsigned int module, const TracedMessage& message,
           QOVDropReason reason) noexcept {
  Ring* const events = ring.load(std::memory_order_acquire);
  if (events == nullptr || !isChosen(message, module)) {
    return;
  }
  QOVTraceEvent event;
  event.time_ = QOVTraceEvent::Clock::now();
  event.thread_ = static_cast<pid_t>(::syscall(SYS_gettid));
  event.step_ = step;
  event.module_ = static_cast<std::uint8_t>(module);
  event.reason_ = reason;
  event.type_ = message.type_;
  event.smid_ = message.smid_;
  event.rmid_ = message.rmid_;
  event.sn_ = message.sn_;
  event.opc_ = message.opc_;
  events->add(event);
}

}  // namespace qov

std::uint64_t QOVMessageTrace::start(std::optional<std::uint8_t> module) {
  qov::Ring* const known = qov::ring.load(std::memory_order_acquire);
  const qov::Ring& events = known != nullptr ? *known : qov::makeRing();
  const std::uint64_t first = events.next();
  qov::chosenModule = module ? int{*module} : qov::kAllModules;
  qov::traceIsOn = true;
  return first;
}

void QOVMessageTrace::stop() {
  qov::traceIsOn = false;
}

bool QOVMessageTrace::isOn() {
  return qov::traceIsOn;
}

QOVMessageTrace::Part QOVMessageTrace::read(std::uint64_t from, std::size_t most) {
  const qov::Ring* const ring = qov::ring.load(std::memory_order_acquire);
  const std::uint64_t end = ring != nullptr ? ring->next() : 0;
  const std::uint64_t oldest = end - std::min<std::uint64_t>(end, kRoom);
  Part part;
  part.next_ = std::max(from, oldest);
  part.lost_ = part.next_ - from;
  for (qov::Words words; part.next_ < end && part.events_.size() < most; ++part.next_) {
    if (ring->read(part.next_, words)) {
      part.events_.push_back(qov::unpack(words));
    } else if (end - part.next_ <= qov::kUnfinished) {
      break;
    } else {
      ++part.lost_;
    }
  }
  return part;
}
