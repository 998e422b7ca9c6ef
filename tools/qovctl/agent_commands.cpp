#include "tools/qovctl/agent_commands.h"

#include <qovpub/qov_utility.h>

#include "modules/common/json_object.h"
#include "tools/qovctl/agent_text.h"
#include "tools/qovctl/failure.h"
#include "tools/qovctl/streams.h"

namespace qov::ctl {
namespace {

constexpr const char* kAgentText = R"(
The agent has the module qovstatus (docs/operating.md). Whoever asks is root, the agent's user, or
whom the agent's configuration names. Without --process the agent is asked that alone has a
configuration below ROOT/conf. log-level sets the level of the log until it is set again or LOG_CFG
is read again, which reload has the agent do; its log says what came of it.
Exit status: as qovctl --help has it; 3 also when the agent does not serve this user, 5 when it
refuses the request.)";

/// Names the commands of `app` where the command line has none of them.
void requireCommand(CLI::App& app) {
  app.require_subcommand(0, 1);
  app.callback([&app] {
    if (!app.get_subcommands().empty()) {
      return;
    }
    std::string names;
    for (const CLI::App* const each : app.get_subcommands([](const CLI::App*) { return true; })) {
      names += (names.empty() ? "" : ", ") + each->get_name();
    }
    throw Failure(kUsage, app.get_name() + ": a command is required: " + names);
  });
}

}  // namespace

void AgentCommands::addTo(CLI::App& app, std::function<void()>& command) {
  command_ = &command;
  CLI::App* const agent = app.add_subcommand("agent", "Ask a running agent what it does");
  requireCommand(*agent);
  auto* const root =
      agent->add_option("--root", target_.root, "The agent's QOV_ROOT; without it that of qovctl");
  auto* const process = agent->add_option("--process", target_.process, "The agent's process name");
  agent->add_option("--socket", target_.socket, "Its status socket, in place of both")
      ->excludes(root)
      ->excludes(process);
  agent->add_option("--timeout", target_.timeout, "Seconds for the answer")
      ->check(CLI::Range(0.001, 86400.0))
      ->capture_default_str();
  agent->add_flag("--json", json_, "Print the agent's answer");
  agent->footer(kAgentText);
  add(*agent, "status", "Print version, configuration, queues, what was dropped, and links",
      &AgentCommands::showStatus);
  add(*agent, "pending", "Print who waits for whom, and what workers are busy with",
      &AgentCommands::showPending);
  add(*agent, "slow", "Print how long handlers take, by operation code", &AgentCommands::showSlow);
  addTopOptions(*add(*agent, "top", "Show all this live in a terminal", &AgentCommands::showTop),
                top_);
  add(*agent, "metrics", "Print all that is counted, in the form of OpenMetrics",
      &AgentCommands::showMetrics);
  add(*agent, "log-level", "Print the level of the log, or set it", &AgentCommands::logLevel)
      ->add_option("LEVEL", level_, "0 (all) to 5 (errors only)")
      ->check(CLI::Range(0, 5));
  add(*agent, "reload", "Have LOG_CFG read again, as SIGUSR1 does", &AgentCommands::reload);
  addBundleOptions(
      *add(*agent, "bundle", "Write an archive of what support asks for", &AgentCommands::bundle),
      bundle_);
  addTraceOptions(*add(*agent, "trace", "Record the way of every message through the modules",
                       &AgentCommands::trace),
                  trace_);
  CLI::App* const module = agent->add_subcommand("module", "See to modules");
  module->fallthrough();
  requireCommand(*module);
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
  print(json_ ? common::jsonText(answer) : text(answer));
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

void AgentCommands::showTop() const {
  top(target_, top_, json_);
}

void AgentCommands::showModules() const {
  show("modules", &modulesText);
}

void AgentCommands::showMetrics() const {
  show("metrics", &metricsText);
}

void AgentCommands::logLevel() const {
  Json::Value request = requestFor("log-level");
  if (level_ >= 0) {
    request["level"] = level_;
  }
  const Json::Value answer = askAgent(target_, request);
  print(json_ ? common::jsonText(answer)
              : std::to_string(common::unsignedAt(answer["level"], "level", 5)) + "\n");
}

void AgentCommands::bundle() const {
  bundleAgent(target_, bundle_);
}

void AgentCommands::trace() const {
  if (json_) {
    throw Failure(kUsage, "--json is not for trace: -o FILE has the trace as JSON");
  }
  traceAgent(target_, trace_);
}

void AgentCommands::reload() const {
  const Json::Value answer = askAgent(target_, requestFor("reload"));
  if (json_) {
    print(common::jsonText(answer));
  }
}

}  // namespace qov::ctl
