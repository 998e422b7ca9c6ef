#include <deque>
#include <limits>
#include <unordered_set>

#include "modules/common/controls.h"
#include "modules/common/json_object.h"
#include "tools/qovctl/fleet_agents.h"
#include "tools/qovctl/fleet_message.h"
#include "tools/qovctl/numbers.h"
#include "tools/qovctl/streams.h"

namespace qov::ctl {
namespace {

using Clock = Broker::Clock;

/// The events of the last time, to tell those that come again.
class SeenEvents {
 public:
  /// False if the event was seen before. One without a number or an outbox never was.
  bool isNew(const std::string& agent, const Delivery& event) {
    if (event.number.empty() || event.outbox.empty()) {
      return true;
    }
    const auto [key, added] = keys_.insert(agent + "\n" + event.outbox + "\n" + event.number);
    if (added) {
      order_.push_back(&*key);
      bytes_ += sizeOf(*key);
      forget();
    }
    return added;
  }

 private:
  static constexpr std::size_t kMost = std::size_t{32} << 20U;

  static std::size_t sizeOf(const std::string& key) { return 100 + key.size(); }

  void forget() {
    while (bytes_ > kMost) {
      bytes_ -= sizeOf(*order_.front());
      keys_.erase(keys_.find(*order_.front()));
      order_.pop_front();
    }
  }

  std::unordered_set<std::string> keys_;
  std::deque<const std::string*> order_;  ///< the oldest first
  std::size_t bytes_ = 0;
};

struct Event {
  std::string agent;
  std::string module;
  std::string opc;
};

std::optional<Event> eventOf(const Delivery& delivery, const std::string& pattern) {
  const auto topic = agentTopicOf(delivery.topic);
  if (!topic || topic->rest.size() != 3 || topic->rest[0] != "event" ||
      !matches(pattern, topic->agent)) {
    return std::nullopt;
  }
  return Event{topic->agent, topic->rest[1], topic->rest[2]};
}

/// A number where it is one.
Json::Value numberJson(const std::string& text) {
  const auto number = numberOf(text, std::numeric_limits<std::uint64_t>::max());
  return number ? common::jsonNumber(*number) : Json::Value(text);
}

/// With the message, or why it is none.
Json::Value eventJson(const Event& event, const Delivery& delivery) {
  Json::Value json(Json::objectValue);
  json["agent"] = event.agent;
  json["module"] = numberJson(event.module);
  json["opc"] = numberJson(event.opc);
  json["number"] = numberJson(delivery.number);
  json["outbox"] = delivery.outbox;
  try {
    json["message"] = jsonOf(*messageOf(delivery));
  } catch (const std::runtime_error& bad) {
    json["fault"] = bad.what();
  }
  return json;
}

std::string eventLine(const Event& event, const Delivery& delivery) {
  std::string shown;
  try {
    shown = recordsLine(*messageOf(delivery));
  } catch (const std::runtime_error& bad) {
    shown = std::string("bad message: ") + bad.what();
  }
  return common::withoutControls(event.agent + "  module " + event.module + "  opc " + event.opc +
                                 "  number " + (delivery.number.empty() ? "-" : delivery.number) +
                                 "  ") +
         common::withoutControls(shown) + "\n";
}

}  // namespace

void watchFleet(const FleetOptions& options, std::optional<double> seconds) {
  Broker broker(options.broker);
  broker.subscribe(filterFor(options.agents, "event/+/+"), 1);
  const auto end = seconds ? Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                std::chrono::duration<double>(*seconds))
                           : Clock::time_point::max();
  SeenEvents seen;
  while (Clock::now() < end) {
    broker.wait(end);
    const auto delivery = broker.take();
    const auto event = delivery ? eventOf(*delivery, options.agents) : std::nullopt;
    if (event && seen.isNew(event->agent, *delivery)) {
      print(options.json ? common::jsonLine(eventJson(*event, *delivery)) + "\n"
                         : eventLine(*event, *delivery));
      // Whoever waits for the next one sees this one.
      finishOutput();
    }
  }
}

}  // namespace qov::ctl
