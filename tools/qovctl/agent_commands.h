#ifndef QOV_TOOLS_QOVCTL_AGENT_COMMANDS_H
#define QOV_TOOLS_QOVCTL_AGENT_COMMANDS_H

#include <json/value.h>

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

#include "tools/qovctl/agent_bundle.h"
#include "tools/qovctl/agent_socket.h"
#include "tools/qovctl/agent_trace.h"
#include "tools/qovctl/top_command.h"

namespace qov::ctl {

/// The commands of "qovctl agent": their options, and what they print.
///
/// Thread: one.
/// Owns:   the values of the options.
/// Errors: Failure, by the commands.
class AgentCommands {
 public:
  /// Adds them to `app`. Each puts itself into `command` when the command line names it.
  void addTo(CLI::App& app, std::function<void()>& command);

 private:
  CLI::App* add(CLI::App& to, const std::string& name, const std::string& description,
                void (AgentCommands::*run)() const);
  /// Prints the answer to `request`, or what `text` makes of it.
  void show(const char* request, std::string (*text)(const Json::Value&)) const;
  void showStatus() const;
  void showPending() const;
  void showSlow() const;
  void showTop() const;
  void showModules() const;
  void showMetrics() const;
  void logLevel() const;
  void reload() const;
  void bundle() const;
  void trace() const;

  std::function<void()>* command_ = nullptr;
  AgentTarget target_;
  bool json_ = false;
  int level_ = -1;  ///< -1: it is asked for
  BundleOptions bundle_;
  TopOptions top_;
  TraceOptions trace_;
};

}  // namespace qov::ctl

#endif
