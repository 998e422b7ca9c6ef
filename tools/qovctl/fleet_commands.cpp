#include "tools/qovctl/fleet_commands.h"

#include <algorithm>
#include <limits>

#include "tools/qovctl/environment.h"
#include "tools/qovctl/failure.h"
#include "tools/qovctl/numbers.h"
#include "tools/qovctl/option_checks.h"
#include "tools/qovctl/request.h"
#include "tools/qovctl/tables_file.h"

namespace qov::ctl {
namespace {

constexpr const char* kBrokerVariable = "QOVCTL_BROKER";

constexpr const char* kFleetText = R"(
The agents have the module qovmqtt and speak with the same MQTT 5 broker. AGENTS is NODE/PROCESS, in
which *, ? and [...] stand for other characters than "/", as in a shell's pattern: put it in quotes.
Environment:
  QOVCTL_BROKER  the broker if there is no --broker
  QOVCTL_TABLES  the file if there is no --tables)";

constexpr const char* kListText = R"(
An agent that ended, orderly or not, is offline since the time that is shown. --json prints a line
with an object for each. The status is 3 when AGENTS is one agent and the broker does not know it.
For example:
  qovctl fleet list --broker mqtt.example.com --cafile ca.crt
  qovctl fleet list 'edge-*/devagent')";

constexpr const char* kWatchText = R"(
Events of before are not shown. The number tells those that come again, which are left out. --json
prints a line with an object for each.
For example:
  qovctl fleet watch 'edge-*/*' --json)";

constexpr const char* kAskText = R"(
Each agent's module gets the same request. What may be asked the agent's configuration says.
--command begins a record, and --cell adds to the record before it, as "qovctl send --help" has it.
Up to 100 agents are asked at the same time. --json prints a line with an object for each, as they
answer. The status is 0 when all have answered, 3 when the broker knows none of them, and otherwise
7.
For example:
  qovctl fleet ask edge-1/devagent 20 --opc 4096
  qovctl fleet ask '*/*' 20 --opc 4097 --command 1 --cell 1:String:eth0)";

std::string checkBroker(const std::string& text) {
  return brokerAddressOf(text) ? "" : "not host[:port], with a port of 1 to 65535";
}

/// NODE/PROCESS, without what topics give a meaning.
std::string checkAgents(const std::string& text) {
  const std::size_t slash = text.find('/');
  const bool two = slash != std::string::npos && slash > 0 && slash + 1 < text.size() &&
                   text.find('/', slash + 1) == std::string::npos;
  return two && text.find_first_of("+#") == std::string::npos ? "" : "no NODE/PROCESS: " + text;
}

}  // namespace

std::optional<BrokerAddress> brokerAddressOf(const std::string& text) {
  const bool bracketed = !text.empty() && text[0] == '[';
  const std::size_t end = bracketed ? text.find(']') : std::min(text.find(':'), text.size());
  if (end == std::string::npos) {
    return std::nullopt;
  }
  BrokerAddress address{bracketed ? text.substr(1, end - 1) : text.substr(0, end), std::nullopt};
  const std::string rest = text.substr(end + (bracketed ? 1 : 0));
  if (!rest.empty()) {
    const auto port = rest[0] == ':' ? numberOf(rest.substr(1), 65535) : std::nullopt;
    if (!port || *port == 0) {
      return std::nullopt;
    }
    address.port = static_cast<int>(*port);
  }
  return address.host.empty() ? std::nullopt : std::optional(address);
}

void FleetCommands::addTo(CLI::App& app, std::function<void()>& command,
                          const std::string& ending) {
  command_ = &command;
  ending_ = ending;
  options_.broker.address = fromEnvironment(kBrokerVariable);
  CLI::App* const fleet =
      app.add_subcommand("fleet", "Ask the agents that speak with an MQTT broker");
  fleet->require_subcommand(0, 1);
  fleet->callback([fleet] {
    if (fleet->get_subcommands().empty()) {
      throw Failure(kUsage, "fleet: a command is required: list, watch, ask");
    }
  });
  fleet->footer(std::string(kFleetText) + "\n" + ending_);
  addList(*fleet);
  addWatch(*fleet);
  addAsk(*fleet);
}

CLI::App* FleetCommands::add(CLI::App& to, const std::string& name,
                             const std::string& description) {
  CLI::App* const command = to.add_subcommand(name, description);
  BrokerTarget& broker = options_.broker;
  command
      ->add_option("--broker", broker.address,
                   "Where the broker listens: HOST, HOST:PORT or [HOST]:PORT; port 1883, with TLS "
                   "8883")
      ->check(checkBroker)
      ->capture_default_str();
  auto* const authority =
      command
          ->add_option("--cafile", broker.caFile,
                       "Use TLS, with a broker whose certificate these ones vouch for")
          ->check(checkNotEmpty);
  auto* const certificate =
      command->add_option("--cert", broker.certificate, "File with qovctl's own certificate")
          ->check(checkNotEmpty)
          ->needs(authority);
  auto* const key = command->add_option("--key", broker.key, "File with the key of --cert")
                        ->check(checkNotEmpty)
                        ->needs(certificate);
  certificate->needs(key);
  auto* const user =
      command->add_option("--user", broker.user, "User name at the broker")->check(checkNotEmpty);
  command
      ->add_option("--password-file", broker.passwordFile,
                   "File whose first line is the password of --user")
      ->check(checkNotEmpty)
      ->needs(user);
  command
      ->add_option("--timeout", broker.timeout,
                   "Seconds (0.001 to 86400) for connecting, for what the broker is asked, and for "
                   "each agent's answer")
      ->check(checkTimeout)
      ->capture_default_str();
  command->add_flag("--json", options_.json, "Print JSON, a line each");
  return command;
}

CLI::Option* FleetCommands::addAgents(CLI::App& command) {
  return command.add_option("AGENTS", options_.agents, "Which agents: NODE/PROCESS, a pattern")
      ->check(checkAgents);
}

void FleetCommands::addQuiet(CLI::App& command) {
  command
      .add_option("--quiet", options_.quiet,
                  "Seconds (0.001 to 86400) without the name of one more agent after which all are "
                  "known: the broker does not tell when")
      ->check(checkTimeout)
      ->capture_default_str();
}

void FleetCommands::addList(CLI::App& fleet) {
  CLI::App* const command = add(fleet, "list", "Print the agents: whether alive, since when");
  addAgents(*command)->capture_default_str();
  addQuiet(*command);
  command->footer(std::string(kListText) + "\n" + kFleetText + "\n" + ending_);
  command->callback([this] {
    *command_ = [this] {
      checkTarget();
      listFleet(options_);
    };
  });
}

void FleetCommands::addWatch(CLI::App& fleet) {
  CLI::App* const command = add(fleet, "watch", "Print the agents' events as they come");
  addAgents(*command)->capture_default_str();
  command->add_option("--seconds", seconds_, "How long (0.001 to 86400); until ^C if left out")
      ->check(checkTimeout);
  command->footer(std::string(kWatchText) + "\n" + kFleetText + "\n" + ending_);
  command->callback([this] {
    *command_ = [this] {
      checkTarget();
      watchFleet(options_, seconds_);
    };
  });
}

void FleetCommands::addAsk(CLI::App& fleet) {
  CLI::App* const command = add(fleet, "ask", "Send a request to agents and print their answers");
  addAgents(*command)->required();
  addNumber<std::uint8_t>(command, "MODULE", 255, module_, "Id of the module that is asked");
  command->get_option("MODULE")->required();
  addNumber(command, "--opc", std::numeric_limits<std::uint64_t>::max(), opc_,
            "Operation code of the request");
  command->get_option("--opc")->required();
  command->add_option("--command", records_, "COMMAND of a record")->allow_extra_args(false);
  command
      ->add_option("--cell", cells_,
                   "TAG:TYPE:VALUE or COLUMN:VALUE of a cell of the record before it")
      ->allow_extra_args(false);
  command->add_option("--tables", tablesFile_, "JSON file of tables, for their names in records")
      ->check(checkNotEmpty);
  addQuiet(*command);
  command->footer(std::string(kAskText) + "\n" + kFleetText + "\n" + ending_);
  command->callback([this, command] { *command_ = [this, command] { ask(*command); }; });
}

void FleetCommands::checkTarget() const {
  if (options_.broker.address.empty()) {
    throw Failure(kUsage, std::string("--broker is required, or ") + kBrokerVariable);
  }
  // That of the option has been checked.
  if (const std::string wrong = checkBroker(options_.broker.address); !wrong.empty()) {
    throw Failure(kUsage, std::string(kBrokerVariable) + ": \"" +
                              shortened(options_.broker.address) + "\" is " + wrong);
  }
}

void FleetCommands::ask(const CLI::App& command) const {
  checkTarget();
  CQOV_MsgPackage request;
  requestFromParts(partsInOrder(command, records_, cells_), tablesInForce(tablesFile_), request);
  request.head().type_ = QOVMsgHead::kRequest;
  request.head().rmid_ = module_;
  request.head().opc_ = opc_;
  askFleet(options_, module_, request);
}

}  // namespace qov::ctl
