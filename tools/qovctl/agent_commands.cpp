#include "tools/qovctl/agent_commands.h"

#include <qovpub/qov_utility.h>

#include "tools/common/json_object.h"
#include "tools/qovctl/agent_text.h"
#include "tools/qovctl/failure.h"
#include "tools/qovctl/streams.h"

namespace qov::ctl {
namespace {

constexpr const char* kAgentText = R"(
The agent has the module qovstatus (docs/operating.md). Whoever asks is root, the agent's user, or
whom the agent's configuration names. Without --process there is one agent's configuration below
ROOT/conf. log-level sets the level of the log until it is set again or LOG_CFG is read again, which
reload has the agent do; its log says what came of it.
Exit status: as qovctl --help has it; 3 also when the agent does not serve this user, 5 when it
refuses the request.)";

Json::Value requestFor(const char* name) {
  Json::Value request(Json::objectValue);
  request["request"] = name;
  return request;
}

}  // namespace

void AgentCommands::addTo(CLI::App& app, std::function<void()>& command) {
  command_ = &command;
  CLI::App* const agent = app.add_subcommand("agent", "Ask a running agent what it does");
  agent->require_subcommand(1);
  auto* const root = agent->add_option("--root", target_.root, "The agent's QOV_ROOT; as here");
  auto* const process = agent->add_option("--process", target_.process, "The agent's process name");
  agent->add_option("--socket", target_.socket, "Its status socket, in place of both")
      ->excludes(root)
      ->excludes(process);
  agent->add_option("--timeout", target_.timeout, "Seconds for the answer")
      ->check(CLI::Range(0.001, 86400.0))
      ->capture_default_str();
  agent->add_flag("--json", json_, "Print the agent's answer");
  agent->footer(kAgentText);
  add(*agent, "status", "Print state, configuration and modules", &AgentCommands::showStatus);
  add(*agent, "pending", "Print which requests wait, and what workers are busy with",
      &AgentCommands::showPending);
  add(*agent, "slow", "Print how long handlers take, by operation code", &AgentCommands::showSlow);
  add(*agent, "metrics", "Print all that is counted, in the form of OpenMetrics",
      &AgentCommands::showMetrics);
  add(*agent, "log-level", "Print the level of the log, or set it", &AgentCommands::logLevel)
      ->add_option("LEVEL", level_, "0 (all) to 5 (errors only)")
      ->check(CLI::Range(0, 5));
  add(*agent, "reload", "Have LOG_CFG read again, as SIGUSR1 does", &AgentCommands::reload);
  CLI::App* const module = agent->add_subcommand("module", "See to modules");
  module->require_subcommand(1)->fallthrough();
  add(*module, "list", "Print the modules that run", &AgentCommands::showModules);
}

CLI::App* AgentCommands::add(CLI::App& to, const std::string& name, const std::string& description,
                             void (AgentCommands::*run)() const) {
  CLI::App* const command = to.add_subcommand(name, description);
  command->fallthrough();
  command->callback([this, run] {
    if (target_.root.empty()) {
      target_.root = QOV_Utility::getQOVRootEnv();
    }
    *command_ = [this, run] { (this->*run)(); };
  });
  return command;
}

void AgentCommands::show(const char* request, std::string (*text)(const Json::Value&)) const {
  const Json::Value answer = askAgent(target_, requestFor(request));
  print(json_ ? tools::jsonText(answer) : text(answer));
}

void AgentCommands::showStatus() const {
  show("status", &statusText);
}

void AgentCommands::showPending() const {
  show("pending", &pendingText);
}

void AgentCommands::showSlow() const {
  show("slow", &slowText);
}

void AgentCommands::showModules() const {
  show("modules", &modulesText);
}

void AgentCommands::showMetrics() const {
  const Json::Value answer = askAgent(target_, requestFor("metrics"));
  print(json_ ? tools::jsonText(answer) : tools::textAt(answer["metrics"], "metrics"));
}

void AgentCommands::logLevel() const {
  Json::Value request = requestFor("log-level");
  if (level_ >= 0) {
    request["level"] = level_;
  }
  const Json::Value answer = askAgent(target_, request);
  print(json_ ? tools::jsonText(answer)
              : std::to_string(tools::unsignedAt(answer["level"], "level", 5)) + "\n");
}

void AgentCommands::reload() const {
  const Json::Value answer = askAgent(target_, requestFor("reload"));
  if (json_) {
    print(tools::jsonText(answer));
  }
}

}  // namespace qov::ctl
