#include "task/message_trace.h"

#include <memory>

#include "task/activity_switch.h"
#include "task/event_ring.h"

namespace qov {

namespace {

/// Stays once it is made: a thread may be writing into it at any time.
std::atomic<EventRing*> shared{nullptr};

constexpr int kAllModules = -1;
std::atomic<int> chosenModule{kAllModules};

bool isChosen(const TracedMessage& message, unsigned int module) {
  const int chosen = chosenModule.load(std::memory_order_relaxed);
  return chosen == kAllModules || chosen == message.smid_ || chosen == message.rmid_ ||
         chosen == static_cast<int>(module);
}

EventRing& makeRing() {
  auto made = std::make_unique<EventRing>();
  EventRing* known = nullptr;
  return shared.compare_exchange_strong(known, made.get(), std::memory_order_acq_rel)
             ? *made.release()
             : *known;
}

}  // namespace

void trace(QOVTraceEvent::Step step, unsigned int module, const TracedMessage& message,
           QOVDropReason reason) noexcept {
  EventRing* const events = shared.load(std::memory_order_acquire);
  if (events == nullptr || !isChosen(message, module)) {
    return;
  }
  EventRing::Place place(*events);
  QOVTraceEvent event;
  event.time_ = QOVTraceEvent::Clock::now();
  event.thread_ = threadHere();
  event.step_ = step;
  event.module_ = static_cast<std::uint8_t>(module);
  event.reason_ = reason;
  event.type_ = message.type_;
  event.smid_ = message.smid_;
  event.rmid_ = message.rmid_;
  event.sn_ = message.sn_;
  event.opc_ = message.opc_;
  place.fill(event);
}

}  // namespace qov

std::uint64_t QOVMessageTrace::start(std::optional<std::uint8_t> module) {
  qov::EventRing* const known = qov::shared.load(std::memory_order_acquire);
  const qov::EventRing& events = known != nullptr ? *known : qov::makeRing();
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
  const qov::EventRing* const ring = qov::shared.load(std::memory_order_acquire);
  if (ring != nullptr) {
    return ring->read(from, most);
  }
  Part nothing;
  nothing.next_ = from;
  return nothing;
}
