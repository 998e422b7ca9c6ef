#include "tools/qovctl/agent_trace.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <limits>
#include <system_error>

#include "modules/common/json_object.h"
#include "tools/qovctl/failure.h"
#include "tools/qovctl/option_checks.h"
#include "tools/qovctl/streams.h"
#include "tools/qovctl/trace_diagram.h"
#include "tools/qovctl/trace_json.h"
#include "tools/qovctl/trace_log.h"
#include "tools/qovctl/whole_file.h"

namespace qov::ctl {
namespace {

using Clock = std::chrono::steady_clock;

/// Between one reading and the next. The agent keeps 65536 steps meanwhile.
constexpr std::chrono::milliseconds kPause{50};
/// For an answer that is on its way when the trace is to end: its steps belong to the trace.
constexpr std::chrono::milliseconds kGrace{1000};
/// What viewers still open: some 300 MB of JSON.
constexpr std::size_t kMostSteps = 500000;

constexpr const char* kTraceText = R"(
FILE has Chrome's trace event format: https://ui.perfetto.dev opens it. SIGINT, SIGTERM or SIGHUP
ends the trace earlier. One client has the trace at a time; a trace ends with half a million steps.
For example:
  qovctl agent trace --seconds 10 -o trace.json
  qovctl agent trace --module 20 --text)";

/// SIGINT, SIGTERM and SIGHUP as a wish to end the trace: they end nothing else while this lives.
class WishToEnd {
 public:
  WishToEnd() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    // nohup has it ignored.
    struct sigaction hangUp {};
    if (::sigaction(SIGHUP, nullptr, &hangUp) == 0 && hangUp.sa_handler != SIG_IGN) {
      sigaddset(&signals, SIGHUP);
    }
    ::sigprocmask(SIG_BLOCK, &signals, &before_);
    signals_ = status::Descriptor(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
    if (signals_.get() < 0) {
      throw Failure(kFailed,
                    "signals cannot be waited for: " + std::generic_category().message(errno));
    }
  }
  ~WishToEnd() {
    // Every wish has been granted, also one that came when the time was over.
    signalfd_siginfo signal{};
    while (::read(signals_.get(), &signal, sizeof signal) > 0) {
    }
    ::sigprocmask(SIG_SETMASK, &before_, nullptr);
  }

  WishToEnd(const WishToEnd&) = delete;
  WishToEnd& operator=(const WishToEnd&) = delete;

  /// Can be read once the wish is there.
  int descriptor() const { return signals_.get(); }

  bool comesWithin(std::chrono::nanoseconds time) const {
    pollfd wish{signals_.get(), POLLIN, 0};
    const auto span = std::chrono::ceil<std::chrono::milliseconds>(time);
    return ::poll(&wish, 1, static_cast<int>(span.count())) > 0;
  }

 private:
  status::Descriptor signals_;
  sigset_t before_{};
};

/// Returns whether there may be more at once.
bool readInto(TraceLog& log, AgentConnection& agent) {
  log.add(agent.ask(requestFor("trace-read")));
  return log.isMore() && log.steps().size() < kMostSteps;
}

void record(TraceLog& log, AgentConnection& agent, double seconds, const WishToEnd& wish) {
  const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                      std::chrono::duration<double>(seconds));
  for (bool goesOn = true; goesOn;) {
    const bool more = readInto(log, agent);
    const auto left = std::max(end - Clock::now(), Clock::duration::zero());
    const auto pause = more ? Clock::duration::zero() : std::min<Clock::duration>(left, kPause);
    goesOn = !wish.comesWithin(pause) && Clock::now() < end && log.steps().size() < kMostSteps;
  }
  const Json::Value stopped = agent.ask(requestFor("trace-stop"));
  while (readInto(log, agent)) {
  }
  log.endAt(common::signedAt(stopped["time"], "time", 0, std::numeric_limits<std::int64_t>::max()));
}

Json::Value startRequest(const TraceOptions& options) {
  Json::Value request = requestFor("trace-start");
  if (options.module) {
    request["module"] = *options.module;
  }
  return request;
}

void write(const TraceLog& log, const TraceOptions& options, WholeFile& file) {
  Json::Value about(Json::objectValue);
  about["process"] = log.process();
  about["steps"] = Json::UInt64{log.steps().size()};
  about["lost"] = Json::UInt64{log.lost()};
  about["module"] = options.module ? Json::Value(log.module(*options.module)) : Json::Value("all");
  writeTraceJson(log, about, [&file](std::string_view text) { file.write(text); });
  file.commit();
}

void sayWhatIsMissing(const TraceLog& log) {
  if (log.lost() > 0) {
    complain(std::to_string(log.lost()) +
             " steps of messages were lost: they came faster than they were read");
  }
  if (log.steps().size() >= kMostSteps) {
    complain("the trace has ended early, with " + std::to_string(log.steps().size()) + " steps");
  }
}

/// What was recorded until the end, or until the agent has failed, which `broken` is then. It is in
/// the file when this returns, if one is wanted.
TraceLog recordToFile(AgentTarget target, const TraceOptions& options,
                      std::optional<Failure>& broken) {
  const WishToEnd wish;
  target.interrupt = wish.descriptor();
  target.grace = kGrace;
  std::optional<WholeFile> file;
  if (!options.file.empty()) {
    file.emplace(options.file);
  }
  AgentConnection agent(target);
  TraceLog log(agent.ask(startRequest(options)));
  try {
    record(log, agent, options.seconds, wish);
  } catch (const Failure& failure) {
    broken = failure;
  }
  sayWhatIsMissing(log);
  if (file) {
    write(log, options, *file);
  }
  return log;
}

}  // namespace

void addTraceOptions(CLI::App& command, TraceOptions& options) {
  command.add_option("--seconds", options.seconds, "How long")
      ->check(CLI::Range(0.001, 86400.0))
      ->capture_default_str();
  addNumber<std::uint8_t>(&command, "--module", 255, options.module,
                          "Id of the module whose messages are recorded; otherwise those of all");
  command.add_option("-o,--output", options.file, "The file that is written")->check(checkNotEmpty);
  auto* const text = command.add_flag(
      "--text", options.text, "Print a sequence diagram (Mermaid) of the slowest answered request");
  addNumber<std::uint32_t>(&command, "--sn", std::numeric_limits<std::uint32_t>::max(),
                           options.serial, "Serial number of the request that --text is to show");
  command.get_option("--sn")->needs(text);
  command.footer(kTraceText);
}

void traceAgent(const AgentTarget& target, const TraceOptions& options) {
  if (options.file.empty() && !options.text) {
    throw Failure(kUsage, "-o FILE or --text is required: what is to come of the trace");
  }
  std::optional<Failure> broken;
  const TraceLog log = recordToFile(target, options, broken);
  const std::string diagram = options.text ? traceDiagram(log, options.serial) : "";
  print(diagram);
  if (broken) {
    throw Failure(*broken);
  }
  if (options.text && diagram.empty()) {
    throw Failure(kFailed, options.serial ? "no request with that serial number is in the trace"
                                          : "no answered request is in the trace");
  }
}

}  // namespace qov::ctl
