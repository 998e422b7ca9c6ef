#ifndef QOV_TOOLS_QOVCTL_ENDPOINT_COMMAND_LINE_H
#define QOV_TOOLS_QOVCTL_ENDPOINT_COMMAND_LINE_H

#include <CLI/CLI.hpp>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tools/qovctl/endpoint_commands.h"

namespace qov::ctl {

/// The commands that speak with an endpoint, and the one that tells its tables.
///
/// Thread: one.
/// Owns:   the values of the options; borrows what it is made with.
/// Errors: Failure, what the commands throw included.
class EndpointCommandLine {
 public:
  /// Adds get, walk, send and tables to `app`; parsing one of them sets `command`. `ending` ends
  /// the help of each.
  EndpointCommandLine(CLI::App& app, std::function<void()>& command, std::string ending);

  EndpointCommandLine(const EndpointCommandLine&) = delete;
  EndpointCommandLine& operator=(const EndpointCommandLine&) = delete;

  /// Whether the link's log is asked for.
  bool verbose() const { return verbose_; }

 private:
  void addGet();
  void addWalk();
  void addSend();
  void addTables();
  CLI::App* addCommand(const std::string& name, const std::string& description);
  void addIdentity(CLI::App* command);
  void addTablesFile(CLI::App* command);
  void addTable(CLI::App* command, const std::string& when);
  void addFormats(CLI::App* command);
  void addColumns(CLI::App* command);
  void setFooter(CLI::App* command, const std::string& text) const;

  void runGet();
  void runWalk();
  void runSend(const CLI::App& send);
  EndpointOptions options() const;
  Columns columnsOf(const Table* table) const;

  CLI::App& app_;
  std::function<void()>& command_;
  const std::string ending_;

  Target target_;
  Identity identity_;
  bool verbose_ = false;
  bool json_ = false;
  bool dump_ = false;
  std::string tablesFile_;
  std::string table_;
  std::string columns_;
  std::vector<std::string> keys_;
  std::string after_;
  std::string file_;
  std::vector<std::string> commands_;
  std::vector<std::string> cells_;
};

}  // namespace qov::ctl

#endif
