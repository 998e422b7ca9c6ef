#ifndef QOV_TOOLS_QOVCTL_FLEET_COMMANDS_H
#define QOV_TOOLS_QOVCTL_FLEET_COMMANDS_H

#include <CLI/CLI.hpp>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/qovctl/fleet_options.h"

namespace qov::ctl {

/// The commands of "qovctl fleet": their options.
///
/// Thread: one.
/// Owns:   the values of the options.
/// Errors: Failure, by the commands.
class FleetCommands {
 public:
  /// Adds them to `app`. Each puts itself into `command` when the command line names it. `ending`
  /// ends the help of each.
  void addTo(CLI::App& app, std::function<void()>& command, const std::string& ending);

 private:
  CLI::App* add(CLI::App& to, const std::string& name, const std::string& description);
  void addList(CLI::App& fleet);
  void addWatch(CLI::App& fleet);
  void addAsk(CLI::App& fleet);
  void addAgents(CLI::App& command);
  void addQuiet(CLI::App& command);
  void checkTarget() const;
  void ask(const CLI::App& command) const;

  std::function<void()>* command_ = nullptr;
  std::string ending_;
  FleetOptions options_;
  std::optional<double> seconds_;
  std::uint8_t module_ = 0;
  std::uint64_t opc_ = 0;
  std::string tablesFile_;
  std::vector<std::string> records_;
  std::vector<std::string> cells_;
};

}  // namespace qov::ctl

#endif
