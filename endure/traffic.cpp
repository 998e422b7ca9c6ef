#include "endure/traffic.h"

#include <qovpub/qov_handlers.h>
#include <qovpub/qov_periodic_task.h>

#include <cassert>
#include <memory>
#include <random>
#include <stdexcept>
#include <utility>

#include "endure/traffic_sender.h"

namespace qov::endure {
namespace {

using std::chrono::milliseconds;

Traffic* currentTraffic = nullptr;

// Parts of a module, for what is random in each. Workers follow.
constexpr unsigned int kFeeder = 0;
constexpr unsigned int kFirstTask = 1;
constexpr unsigned int kTasks = 2;
constexpr unsigned int kFirstWorker = kFirstTask + kTasks;

/// Of notices. With more, most workers wait for workers that wait, and most requests time out.
constexpr std::uint32_t kWorkOneIn = 8;

/// What the handlers of a task have in common.
class TrafficReceiver {
 public:
  TrafficReceiver(Traffic& traffic, const CQOV_Task& task)
      : traffic_(traffic),
        counts_(traffic.of(static_cast<std::uint8_t>(task.taskMgr()->moduleId()))) {}

  int answer(const CQOV_MsgPackage& request, CQOV_MsgPackage& answer) {
    const Order order = take(request, counts_.requestsOf_);
    ++counts_.answersTo_[placeOf(request.head().smid_)];
    if (order.outcome_ == 0) {
      write(answer, order);
    }
    return obey(order);
  }

  int answerNobody(const CQOV_MsgPackage& request) {
    take(request, counts_.requestsOf_);
    return 0;
  }

  int note(const CQOV_MsgPackage& notice) { return obey(take(notice, counts_.noticesOf_)); }

 private:
  Order take(const CQOV_MsgPackage& message, CountOfEach& counts) {
    ++counts[placeOf(message.head().smid_)];
    Order order;
    try {
      order = read(message);
    } catch (const CQOV_Exception& error) {
      traffic_.wrong(std::string("a message does not say what it is: ") + error.what());
      return order;
    }
    traffic_.handled(order.serial_);
    if (!hasPayloadOf(message, order)) {
      traffic_.wrong("message " + std::to_string(order.serial_) + " has another payload");
    }
    if (order.handling_.count() > 0) {
      std::this_thread::sleep_for(order.handling_);
    }
    return order;
  }

  static int obey(const Order& order) {
    if (order.outcome_ == Order::kThrows) {
      throw std::runtime_error("as the message says");
    }
    return order.outcome_ == Order::kMute ? 0 : static_cast<int>(order.outcome_);
  }

  Traffic& traffic_;
  TrafficCounts& counts_;
};

class TrafficWorker : public QOVHandlers<TrafficWorker> {
 public:
  TrafficWorker(CQOV_TaskMgr* module, unsigned int part)
      : QOVHandlers(module, {{kNote, &TrafficWorker::note},
                             {kWork, &TrafficWorker::work},
                             {kAsk, &TrafficWorker::answer},
                             {kAskInVain, &TrafficWorker::answerNobody}}),
        traffic_(Traffic::current()),
        receiver_(traffic_, *this),
        sender_(traffic_, *this, part) {}

 private:
  int note(CQOV_MsgPackage& notice) { return receiver_.note(notice); }
  int answer(CQOV_MsgPackage& request, CQOV_MsgPackage& answer) {
    return receiver_.answer(request, answer);
  }
  int answerNobody(CQOV_MsgPackage& request) { return receiver_.answerNobody(request); }

  int work(CQOV_MsgPackage& notice) {
    constexpr std::uint32_t kMost = 2;
    for (std::uint32_t left = sender_.between(0, kMost); left > 0 && traffic_.flows(); --left) {
      sender_.sendAnything();
    }
    return receiver_.note(notice);
  }

  Traffic& traffic_;
  TrafficReceiver receiver_;
  TrafficSender sender_;
};

/// Sends at every tick, and serves an operation of its own.
class TrafficTask : public QOVStaticHandlers<TrafficTask, QOVPeriodicTask> {
 public:
  TrafficTask(CQOV_TaskMgr* module, unsigned int part)
      : QOVStaticHandlers(module, {{kAskTask, &TrafficTask::answer}}),
        traffic_(Traffic::current()),
        receiver_(traffic_, *this),
        sender_(traffic_, *this, part) {
    every(milliseconds(sender_.between(2, 20)));
  }

  void tick() override {
    constexpr std::uint32_t kMost = 3;
    for (std::uint32_t left = sender_.between(0, kMost); left > 0 && traffic_.flows(); --left) {
      sendSomething();
    }
  }

 private:
  /// Not a request to another module that it waits for: if that has no room, a static task waits
  /// until the stop.
  void sendSomething() {
    constexpr std::uint32_t kEventOneIn = 20;
    const QOVRequest::Duration limit = milliseconds(sender_.between(0, 20));
    if (traffic_.sendsEvents() && sender_.oneIn(kEventOneIn)) {
      sender_.tellMqtt();
    } else if (sender_.oneIn(8)) {
      sender_.askOwnPool();
    } else if (sender_.oneIn(2)) {
      sender_.askLater();
    } else {
      sender_.tell(sender_.oneIn(kWorkOneIn) ? kWork : kNote, &limit);
    }
  }

  int answer(CQOV_MsgPackage& request, CQOV_MsgPackage& answer) {
    return receiver_.answer(request, answer);
  }

  Traffic& traffic_;
  TrafficReceiver receiver_;
  TrafficSender sender_;
};

class TrafficModule : public CQOV_TaskMgr {
 public:
  explicit TrafficModule(std::uint8_t id)
      : CQOV_TaskMgr(id, Traffic::current().poolSizeOf(id),
                     ("traffic" + std::to_string(id)).c_str()) {
    for (unsigned int i = 0; i < kTasks; ++i) {
      tasks_.push_back(std::make_unique<TrafficTask>(this, kFirstTask + i));
    }
  }

  CQOV_Task* createTask() override { return new TrafficWorker(this, kFirstWorker + workers_++); }

  bool initEnv() override {
    for (const auto& task : tasks_) {
      if (insertStaticScheduledTask(task.get()) != 0) {
        return false;
      }
    }
    Traffic::current().join(*this);
    return true;
  }

 private:
  std::vector<std::unique_ptr<TrafficTask>> tasks_;
  // The scheduler's.
  unsigned int workers_ = 0;
};

/// What a thread that belongs to no task sends by a task that never runs.
void feedFrom(Traffic& traffic, CQOV_TaskMgr& module) {
  constexpr std::uint32_t kFloodOneIn = 300;
  // More than there is room for.
  constexpr int kFlood = 3000;
  constexpr QOVRequest::Duration kAtOnce(0);
  CQOV_Task task(&module);
  TrafficSender sender(traffic, task, kFeeder);
  while (traffic.flows()) {
    std::this_thread::sleep_for(milliseconds(sender.between(1, 10)));
    if (sender.oneIn(kFloodOneIn)) {
      const std::uint8_t receiver = sender.anyModule();
      for (int left = kFlood; left > 0; --left) {
        sender.tellShortly(receiver);
      }
    }
    for (std::uint32_t left = sender.between(0, 10); left > 0; --left) {
      sender.tell(sender.oneIn(kWorkOneIn) ? kWork : kNote, &kAtOnce);
    }
  }
}

}  // namespace

std::atomic<std::uint64_t> Traffic::lastSerial_{0};

std::array<std::atomic<std::uint64_t>, 1U << 15U> Traffic::handled_{};

Traffic::Traffic(std::uint64_t seed, LatenessOfAll& lateness,
                 std::function<void(const std::string&)> wrong)
    : seed_(seed), lateness_(lateness), wrong_(std::move(wrong)) {
  constexpr unsigned int kMostWorkers = 8;
  std::mt19937_64 random(seed);
  for (unsigned int& size : poolSizes_) {
    size = std::uniform_int_distribution<unsigned int>(1, kMostWorkers)(random);
  }
  currentTraffic = this;
}

Traffic::~Traffic() {
  dryUp();
}

void Traffic::feed() {
  flows_ = true;
  for (CQOV_TaskMgr* const module : modules_) {
    feeders_.emplace_back([this, module] { feedFrom(*this, *module); });
  }
}

void Traffic::dryUp() {
  flows_ = false;
  for (std::thread& feeder : feeders_) {
    feeder.join();
  }
  feeders_.clear();
}

void Traffic::handled(std::uint64_t serial) {
  if (handled_[serial % handled_.size()].exchange(serial) == serial) {
    wrong("message " + std::to_string(serial) + " was handled twice");
  }
}

std::uint64_t Traffic::seedOf(std::uint8_t module, unsigned int part) const {
  constexpr std::uint64_t kParts = 1U << 16U;
  return seed_ + module * kParts + part;
}

Traffic& Traffic::current() {
  assert(currentTraffic != nullptr);
  return *currentTraffic;
}

CQOV_TaskMgr* makeTrafficModule(std::uint8_t id) {
  return new TrafficModule(id);
}

}  // namespace qov::endure
