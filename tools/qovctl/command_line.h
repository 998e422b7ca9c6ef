#ifndef QOV_TOOLS_QOVCTL_COMMAND_LINE_H
#define QOV_TOOLS_QOVCTL_COMMAND_LINE_H

#include <CLI/CLI.hpp>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tools/qovctl/agent_commands.h"
#include "tools/qovctl/check_command.h"
#include "tools/qovctl/decode_command.h"
#include "tools/qovctl/endpoint_commands.h"

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
  void addGet();
  void addWalk();
  void addSend();
  void addCheck();
  CLI::App* addEndpointCommand(const std::string& name, const std::string& description);
  void addTable(CLI::App* command, const std::string& when);
  void addFormats(CLI::App* command, const std::string& otherwise);
  EndpointOptions endpointOptions() const;
  std::vector<RequestPart> requestParts(const CLI::App& send) const;
  void parse(int argc, char** argv);

  CLI::App app_;
  std::function<void()> command_;

  AgentCommands agent_;

  DecodeOptions decode_;
  std::string kind_ = "auto";

  CheckOptions check_;

  Target target_;
  bool verbose_ = false;
  bool json_ = false;
  bool dump_ = false;
  std::string table_;
  std::string key_;
  std::string file_;
  std::vector<std::string> commands_;
  std::vector<std::string> cells_;
};

}  // namespace qov::ctl

#endif
