#ifndef QOV_TOOLS_QOVCTL_AGENT_TRACE_H
#define QOV_TOOLS_QOVCTL_AGENT_TRACE_H

#include <CLI/CLI.hpp>

#include <cstdint>
#include <optional>
#include <string>

#include "tools/qovctl/agent_socket.h"

namespace qov::ctl {

/// Options of "qovctl agent trace".
struct TraceOptions {
  double seconds = 5;
  std::optional<std::uint8_t> module;
  std::string file;
  bool text = false;
  std::optional<std::uint32_t> serial;
};

/// Adds them to the command.
void addTraceOptions(CLI::App& command, TraceOptions& options);

/// Has the agent record the steps of its messages, until the time is over or SIGINT, SIGTERM or
/// SIGHUP comes, writes them to the file and prints the diagram. What was recorded is written, too,
/// if the agent ends meanwhile; Failure comes then.
void traceAgent(const AgentTarget& target, const TraceOptions& options);

}  // namespace qov::ctl

#endif
