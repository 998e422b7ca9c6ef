#include <array>

#include "modules/common/json_object.h"
#include "tools/qovctl/agent_text.h"
#include "tools/qovctl/bundle_parts.h"
#include "tools/qovctl/failure.h"

namespace qov::ctl {
namespace {

struct Question {
  const char* name;
  std::string (*text)(const Json::Value&);
  bool hasJson;
};

constexpr std::array<Question, 4> kQuestions{{{"status", &statusText, true},
                                              {"pending", &pendingText, true},
                                              {"slow", &slowText, true},
                                              {"metrics", &metricsText, false}}};

Json::Value ask(Bundle& bundle, const AgentTarget& target, const Question& question) {
  Json::Value answer = askAgent(target, requestFor(question.name));
  const std::string name = std::string("agent/") + question.name;
  if (question.hasJson) {
    bundle.add(name + ".json", common::jsonText(answer));
  }
  bundle.add(name + ".txt", question.text(answer));
  return answer;
}

/// Returns whether the next may be asked: an agent that does not know one request may know others.
bool take(Bundle& bundle, const AgentTarget& target, const Question& question,
          Json::Value& answer) try {
  answer = ask(bundle, target, question);
  return true;
} catch (const common::BadJson& bad) {
  bundle.miss(std::string("the agent's ") + question.name + ": " + bad.what());
  return true;
} catch (const Failure& failure) {
  const bool goesOn = failure.code() == kEndpointError || failure.code() == kBadData;
  bundle.miss(std::string("the agent's ") + question.name +
              (goesOn ? "" : ", and what it is asked after that") + ": " + failure.what());
  return goesOn;
}

}  // namespace

Json::Value addAnswers(Bundle& bundle, const AgentTarget& target) {
  Json::Value status;
  Json::Value other;
  for (const Question& question : kQuestions) {
    const bool isFirst = &question == kQuestions.data();
    if (!take(bundle, target, question, isFirst ? status : other)) {
      break;
    }
  }
  return status;
}

}  // namespace qov::ctl
