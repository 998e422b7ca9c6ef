#ifndef QOV_TOOLS_QOVCTL_COMMAND_LINE_H
#define QOV_TOOLS_QOVCTL_COMMAND_LINE_H

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

#include "tools/qovctl/agent_commands.h"
#include "tools/qovctl/check_command.h"
#include "tools/qovctl/decode_command.h"
#include "tools/qovctl/endpoint_command_line.h"
#include "tools/qovctl/fleet_commands.h"

namespace qov::ctl {

/// The program's commands and options.
///
/// Thread: one.
/// Owns:   the values of the options.
/// Errors: Failure, what the command throws included.
class CommandLine {
 public:
  CommandLine();

  /// Runs the command that the arguments name, or prints the help they ask for.
  void run(int argc, char** argv);

 private:
  void addDecode();
  void addCheck();
  void parse(int argc, char** argv);

  CLI::App app_;
  std::function<void()> command_;

  AgentCommands agent_;
  FleetCommands fleet_;

  DecodeOptions decode_;
  std::string kind_ = "auto";

  CheckOptions check_;

  EndpointCommandLine endpoint_;
};

}  // namespace qov::ctl

#endif
