#include <algorithm>
#include <list>

#include "modules/common/json_object.h"
#include "modules/common/message_payload.h"
#include "tools/qovctl/agent_parts.h"
#include "tools/qovctl/fleet_agents.h"
#include "tools/qovctl/fleet_answers.h"
#include "tools/qovctl/fleet_message.h"

namespace qov::ctl {
namespace {

using Clock = Broker::Clock;

/// Agents that are asked at the same time: a request that waits behind thousands would look slow.
constexpr std::size_t kAtOnce = 100;

/// After its time-out an agent tells that its module has not answered.
constexpr std::chrono::seconds kLonger{1};

/// Asks agents, some at the same time.
class Asking {
 public:
  Asking(Broker& broker, const FleetOptions& options, std::uint8_t module, std::string request,
         Answers& answers)
      : broker_(broker),
        timeout_(options.broker.timeout),
        requestTopic_("/request/" + std::to_string(module)),
        responseTopic_("/response/" + broker.clientId()),
        request_(std::move(request)),
        answers_(answers) {
    broker_.subscribe(filterFor(options.agents, responseTopic_.substr(1)), 1);
  }

  void ask(const std::vector<std::string>& agents) {
    for (auto next = agents.begin(); next != agents.end() || !asked_.empty();) {
      for (; next != agents.end() && asked_.size() < kAtOnce; ++next) {
        publishTo(*next);
      }
      wait();
      takeAnswer();
      takeRefusals();
      giveUp();
    }
  }

 private:
  /// A request without an answer so far.
  struct Asked {
    std::string agent;
    std::string correlation;
    int id;
    Clock::time_point start;
    Clock::duration end;  ///< of waited_
  };

  void publishTo(const std::string& agent) {
    const std::string correlation = std::to_string(++last_);
    const auto start = Clock::now();
    const int id = broker_.publish({"qov/" + agent + requestTopic_, request_,
                                    "qov/" + agent + responseTopic_, correlation, timeout_});
    asked_.push_back(
        {agent, correlation, id, start,
         waited_ + kLonger +
             std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(timeout_))});
  }

  /// Time that this program does not wait for the broker does not count: it may stand still, as
  /// nobody reads its output or as it is stopped, and answers come meanwhile.
  void wait() {
    const auto before = Clock::now();
    broker_.wait(before + asked_.front().end - waited_);
    waited_ += std::min<Clock::duration>(Clock::now() - before, Broker::kLongestWait);
  }

  void takeAnswer() {
    const auto delivery = broker_.take();
    const auto topic = delivery ? agentTopicOf(delivery->topic) : std::nullopt;
    const auto found = std::find_if(asked_.begin(), asked_.end(), [&](const Asked& each) {
      return topic && each.agent == topic->agent && each.correlation == delivery->correlation;
    });
    if (found == asked_.end()) {
      return;
    }
    Outcome outcome = outcomeOf(*delivery);
    outcome.agent = found->agent;
    outcome.milliseconds =
        std::chrono::duration<double, std::milli>(delivery->time - found->start).count();
    asked_.erase(found);
    answers_.add(outcome);
  }

  static Outcome outcomeOf(const Delivery& delivery) {
    Outcome outcome{"", Outcome::kBad, -1, "", Json::Value()};
    try {
      if (const std::string error = errorIn(delivery); !error.empty()) {
        outcome.result = Outcome::kRefused;
        outcome.text = error;
        return outcome;
      }
      const auto message = messageOf(delivery);
      outcome.result = Outcome::kAnswered;
      outcome.text = recordsLine(*message);
      outcome.message = jsonOf(*message);
    } catch (const std::runtime_error& bad) {
      outcome.text = bad.what();
    }
    return outcome;
  }

  /// "CODE: TEXT" of an answer that is {"error":{...}}; empty for another one.
  static std::string errorIn(const Delivery& delivery) {
    constexpr std::size_t kMostOfError = std::size_t{64} << 10U;
    if (delivery.contentType == kMessageBytes || delivery.payload.size() > kMostOfError) {
      return "";
    }
    const Json::Value json = common::parseJson(delivery.payload);
    const Json::Value error = json.isObject() ? part(json, "error") : Json::Value();
    return error.isObject() && !error.empty() ? text(error, "code") + ": " + text(error, "text")
                                              : "";
  }

  void takeRefusals() {
    for (const auto& [id, why] : broker_.takeRefused()) {
      const auto found = std::find_if(asked_.begin(), asked_.end(),
                                      [id = id](const Asked& each) { return each.id == id; });
      if (found != asked_.end()) {
        answers_.add({found->agent, Outcome::kNotDelivered, -1, why, Json::Value()});
        asked_.erase(found);
      }
    }
  }

  /// They are in the order of their time-outs.
  void giveUp() {
    while (!asked_.empty() && asked_.front().end <= waited_) {
      answers_.add({asked_.front().agent, Outcome::kNoAnswer, -1, "", Json::Value()});
      asked_.pop_front();
    }
  }

  Broker& broker_;
  const double timeout_;
  const std::string requestTopic_;
  const std::string responseTopic_;
  const std::string request_;
  Answers& answers_;
  std::list<Asked> asked_;
  Clock::duration waited_{0};  ///< for the broker
  std::uint64_t last_ = 0;
};

}  // namespace

void askFleet(const FleetOptions& options, std::uint8_t module, const CQOV_MsgPackage& request) {
  Broker broker(options.broker);
  const auto agents = knownAgents(broker, options);
  if (agents.empty()) {
    throw unknownAgents(options);
  }
  Answers answers(options.json, hasWildcards(options.agents));
  std::vector<std::string> online;
  for (const auto& [agent, status] : agents) {
    if (status.online || !status.fault.empty()) {
      online.push_back(agent);
    } else {
      answers.add({agent, Outcome::kOffline, -1,
                   status.since.empty() ? "" : "since " + status.since, Json::Value()});
    }
  }
  try {
    Asking(broker, options, module, common::jsonOfMessage(request), answers).ask(online);
  } catch (...) {
    answers.printTable();
    throw;
  }
  answers.printTable();
  answers.check();
}

}  // namespace qov::ctl
