#include "endure/traffic_sender.h"

#include <ace/Time_Value.h>
#include <qovpub/qov_task_mgr.h>
#include <qovpub/qov_utility.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <utility>

namespace qov::endure {
namespace {

using Clock = std::chrono::steady_clock;
using Duration = QOVRequest::Duration;
using std::chrono::milliseconds;

/// The id of no module.
constexpr std::uint8_t kNobody = 99;
/// What a handler's failure is to who has asked.
constexpr std::uint32_t kFailure = 255;
/// Fewer than QOVRequest::kMostLater, so that a refusal has but one reason.
constexpr std::uint64_t kMostLater = 500;
/// Clocks that are read in another order than the library reads them.
constexpr milliseconds kTooEarly(2);

bool isAnswerTo(const CQOV_MsgPackage& answer, const Order& order) {
  try {
    return read(answer) == order && hasPayloadOf(answer, order);
  } catch (const CQOV_Exception&) {
    return false;
  }
}

/// Counts what came of a request, and looks whether it is what was asked for. `noRoom` counts one
/// that found none.
void conclude(Traffic& traffic, TrafficCounts& counts, const Order& order, const QOVAnswer& answer,
              Count& noRoom) {
  const std::string request = "request " + std::to_string(order.serial_);
  const std::uint32_t failure = order.outcome_ == Order::kThrows ? kFailure : order.outcome_;
  switch (answer.reason()) {
    case QOVReason::kNone:
      ++counts.answered_;
      if (order.outcome_ != 0 || !isAnswerTo(*answer, order)) {
        traffic.wrong(request + " got the answer to another one");
      }
      return;
    case QOVReason::kRefused:
      ++counts.refused_;
      if (answer.result() != failure) {
        traffic.wrong(request + " got result " + std::to_string(answer.result()) + ", not " +
                      std::to_string(failure));
      }
      return;
    case QOVReason::kTimedOut:
      ++counts.timedOut_;
      return;
    case QOVReason::kNoReceiver:
      ++counts.noReceiver_;
      return;
    case QOVReason::kNoRoom:
      ++noRoom;
      return;
    default:
      traffic.wrong(request + " got no answer: " + answer.text());
  }
}

/// Notes how long after its `limit` a request has ended. A time-out does not end it before.
void noteTime(const Traffic& traffic, Lateness& lateness, Clock::time_point limit,
              const QOVAnswer& answer) {
  const Clock::duration late = Clock::now() - limit;
  const bool timedOut = answer.reason() == QOVReason::kTimedOut;
  if (timedOut && late < -kTooEarly) {
    traffic.wrong("a time-out came too early");
  }
  if (timedOut || late > Clock::duration::zero()) {
    lateness.note(std::chrono::duration_cast<std::chrono::microseconds>(late));
  }
}

QOVReason reasonOf(int cause) {
  switch (cause) {
    case ETIMEDOUT:
      return QOVReason::kTimedOut;
    case EHOSTUNREACH:
      return QOVReason::kNoReceiver;
    case ENOBUFS:
      return QOVReason::kNoRoom;
    default:
      return QOVReason::kInvalid;
  }
}

}  // namespace

TrafficSender::TrafficSender(Traffic& traffic, CQOV_Task& task, unsigned int part)
    : traffic_(traffic),
      task_(task),
      module_(static_cast<std::uint8_t>(task.taskMgr()->moduleId())),
      counts_(traffic.of(module_)),
      random_(traffic.seedOf(module_, part)) {}

void TrafficSender::ask() {
  const Order order = anyOrder();
  const std::uint8_t receiver = anyReceiver();
  askOf(receiver, operationOf(order), order);
}

void TrafficSender::askOwnPool() {
  const Order order = anyOrder();
  askOf(module_, order.outcome_ == Order::kMute ? kAskInVain : kAsk, order);
}

void TrafficSender::askOf(std::uint8_t receiver, std::uint64_t operation, const Order& order) {
  const Duration timeout = anyTimeout();
  QOVRequest request(task_, receiver, operation);
  write(request.message(), order);
  ++counts_.asked_;
  const bool byHand = oneIn(2);
  const Clock::time_point begin = Clock::now();
  const QOVAnswer answer =
      byHand ? send(std::make_unique<CQOV_MsgPackage>(std::move(request.message())), timeout)
             : request.ask(timeout);
  noteTime(traffic_, traffic_.lateness().asked_, begin + timeout, answer);
  conclude(traffic_, counts_, order, answer, counts_.noRoom_);
}

QOVAnswer TrafficSender::send(std::unique_ptr<CQOV_MsgPackage> request, Duration timeout) {
  request->head().type_ = QOVMsgHead::kRequest;
  ACE_Time_Value limit(timeout);
  CQOV_MsgPackage* answer = nullptr;
  const int result = task_.send(request.release(), answer, &limit, true);
  if (result == 0) {
    return QOVAnswer(std::unique_ptr<CQOV_MsgPackage>(answer));
  }
  return result > 0 ? QOVAnswer(QOVReason::kRefused, static_cast<std::uint8_t>(result))
                    : QOVAnswer(reasonOf(errno));
}

void TrafficSender::askLater() {
  if (counts_.laterPending_ >= kMostLater) {
    return;
  }
  const Order order = anyOrder();
  QOVRequest request(task_, anyReceiver(), operationOf(order));
  write(request.message(), order);
  ++counts_.asked_;
  ++counts_.laterPending_;
  Traffic& traffic = traffic_;
  TrafficCounts& counts = counts_;
  const Duration timeout = anyTimeout();
  const auto conclusion = [&traffic, &counts, order, module = module_,
                           limit = Clock::now() + timeout](const QOVAnswer& answer) {
    --counts.laterPending_;
    ++counts.continuations_;
    noteTime(traffic, traffic.lateness().askedLater_, limit, answer);
    conclude(traffic, counts, order, answer, counts.noRoomLater_);
    constexpr std::uint64_t kTellsOneIn = 16;
    if (traffic.flows() && order.serial_ % kTellsOneIn == 0) {
      TrafficSender(traffic, *getCurrentTask(), static_cast<unsigned int>(order.serial_))
          .tellShortly(module);
    }
  };
  const QOVReason reason = request.askLater(timeout, conclusion);
  if (reason == QOVReason::kNone) {
    return;
  }
  --counts_.laterPending_;
  ++counts_.askNotTaken_;
  if (reason != QOVReason::kNoRoom) {
    traffic_.wrong(std::string("askLater(): ") + QOV_TextOf(reason));
  }
}

void TrafficSender::tell(TrafficOperation operation, const Duration* limit) {
  const std::uint8_t receiver = anyReceiver();
  QOVRequest notice(task_, receiver, operation);
  write(notice.message(), anyOrder());
  const QOVMsgHead::Type type = oneIn(2) ? QOVMsgHead::kNotice : QOVMsgHead::kEvent;
  told(limit != nullptr ? notice.tell(*limit, type) : notice.tell(type), receiver);
}

void TrafficSender::tellShortly(std::uint8_t module) {
  QOVRequest notice(task_, module, kNote);
  Order order;
  order.serial_ = traffic_.serial();
  write(notice.message(), order);
  told(notice.tell(Duration::zero()), module);
}

void TrafficSender::tellMqtt() {
  const std::uint64_t serial = traffic_.serial();
  QOVRequest event(task_, kMqttModule, serial);
  const QOVReason reason = event.tell(Duration::zero(), QOVMsgHead::kEvent);
  told(reason, kMqttModule);
  counts_.eventSerials_ += reason == QOVReason::kNone ? serial : 0;
}

void TrafficSender::told(QOVReason reason, std::uint8_t receiver) {
  if (reason == QOVReason::kNone) {
    ++(receiver == kNobody       ? counts_.toldNobody_
       : receiver == kMqttModule ? counts_.events_
                                 : counts_.told_);
    return;
  }
  ++counts_.tellNotTaken_;
  if (reason != QOVReason::kNoRoom) {
    traffic_.wrong(std::string("tell(): ") + QOV_TextOf(reason));
  }
}

void TrafficSender::sendOfNoType() {
  constexpr std::uint8_t kNoSuchType = 9;
  auto message = std::make_unique<CQOV_MsgPackage>();
  message->head().type_ = kNoSuchType;
  if (task_.send(message.release(), nullptr, true) == 0) {
    ++counts_.ofNoType_;
  } else {
    traffic_.wrong("a message of no type was not taken");
  }
}

void TrafficSender::sendAnything() {
  const std::uint32_t which = between(1, 1000);
  if (which <= 600) {
    ask();
  } else if (which <= 850) {
    askLater();
  } else if (which <= 998) {
    tell(kNote, nullptr);
  } else {
    sendOfNoType();
  }
}

std::uint8_t TrafficSender::anyModule() {
  return static_cast<std::uint8_t>(kFirstTrafficModule + between(0, kTrafficModules - 1));
}

std::uint8_t TrafficSender::anyReceiver() {
  constexpr std::uint32_t kNobodyOneIn = 500;
  return oneIn(kNobodyOneIn) ? kNobody : anyModule();
}

std::uint64_t TrafficSender::operationOf(const Order& order) {
  constexpr std::uint32_t kTaskOneIn = 5;
  if (order.outcome_ == Order::kMute) {
    return kAskInVain;
  }
  return oneIn(kTaskOneIn) ? kAskTask : kAsk;
}

Duration TrafficSender::anyTimeout() {
  return milliseconds(between(20, 300));
}

Order TrafficSender::anyOrder() {
  constexpr std::uint32_t kLongestPayload = 1U << 20U;
  Order order;
  order.serial_ = traffic_.serial();
  // Most take no time, some a few milliseconds, a few longer than any time-out.
  if (const std::uint32_t which = between(1, 10000); which <= 3) {
    order.handling_ = milliseconds(between(350, 600));
  } else if (which <= 250) {
    order.handling_ = std::chrono::microseconds(between(100, 5000));
  }
  if (const std::uint32_t which = between(1, 1000); which <= 3) {
    order.outcome_ = Order::kThrows;
  } else if (which <= 30) {
    order.outcome_ = between(1, kFailure - 1);
  } else if (which <= 33) {
    order.outcome_ = Order::kMute;
  }
  if (const std::uint32_t which = between(1, 1000); which == 1) {
    order.bytes_ = between(0, kLongestPayload);
  } else if (which <= 20) {
    order.bytes_ = between(0, 0xFFFF);
  } else if (which <= 600) {
    order.bytes_ = between(0, 300);
  }
  return order;
}

}  // namespace qov::endure
