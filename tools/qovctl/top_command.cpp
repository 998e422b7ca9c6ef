#include "tools/qovctl/top_command.h"

#include <chrono>
#include <string>
#include <thread>
#include <utility>

#include "modules/common/json_object.h"
#include "tools/qovctl/failure.h"
#include "tools/qovctl/streams.h"
#include "tools/qovctl/terminal.h"
#include "tools/qovctl/top_document.h"
#include "tools/qovctl/top_screen.h"
#include "tools/qovctl/top_table.h"

namespace qov::ctl {
namespace {

using Clock = Terminal::Clock;

constexpr const char* kTopText = R"(
Shows agent, modules, requests that wait, handlers that run and those that were slowest, and links,
and asks anew every --interval seconds. Rows without room are counted, columns that matter less go
where the screen is narrow. Each byte of a name that is no printable ASCII is a "?".
Keys: q or ^C ends it, s sorts the modules by the next of id, queue, busy, handled/s, oldest and
dropped, the space bar asks at once.
When the agent goes away the last figures stay, the last line says why, and it is asked again; if it
is not there to begin with the command ends as the others do. --once asks twice, --interval apart,
for what is handled per second, and prints all rows; with --json a document with the answers to
status, pending and slow. Without a terminal and --once the exit status is 2.)";

constexpr ScreenSize kWholeScreen{100000, 100000};

Clock::duration durationOf(double seconds) {
  return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

Json::Value documentOf(const AgentTarget& target, const Json::Value& before) {
  Json::Value status = askAgent(target, requestFor("status"));
  Json::Value pending = askAgent(target, requestFor("pending"));
  return topDocument(std::move(status), std::move(pending), askAgent(target, requestFor("slow")),
                     before);
}

/// What is on the terminal.
///
/// Thread: one.
/// Owns:   the terminal.
/// Errors: BadJson for an answer that is none; a failure to get one is shown.
class LiveTop {
 public:
  LiveTop(AgentTarget target, double interval)
      : target_(std::move(target)),
        interval_(durationOf(interval)),
        document_(documentOf(target_, {})),
        next_(Clock::now() + interval_) {
    target_.interrupt = terminal_.input();
  }

  void run() {
    while (!ended_) {
      show();
      if (const int key = terminal_.keyBefore(next_); key != Terminal::kNoKey) {
        take(key);
      } else {
        askAnew();
      }
    }
  }

 private:
  void show() {
    const ScreenSize size = terminal_.size();
    const Screen bottom =
        why_.empty() ? Screen{{cut("q ends  s sorts (now by " + std::string(nameOf(order_)) +
                                       ")  space asks at once",
                                   size.columns)}}
                     : notice("old figures, trying again: " + why_, size.columns);
    const std::size_t left = size.rows - std::min(size.rows, bottom.size());
    terminal_.show(topScreen(document_, order_, {size.columns, left}), bottom);
  }

  void take(int key) {
    switch (key) {
      case 'q':
      case Terminal::kEnd:
        ended_ = true;
        break;
      case 's':
        order_ = after(order_);
        break;
      case ' ':
        next_ = Clock::now();
        break;
      default:
        break;
    }
  }

  /// A key ends the wait for an answer; what was asked for is asked again then.
  void askAnew() {
    try {
      document_ = documentOf(target_, document_);
      why_.clear();
    } catch (const Interrupted&) {
      return;
    } catch (const Failure& failure) {
      why_ = failure.what();
    }
    next_ = Clock::now() + interval_;
  }

  AgentTarget target_;
  const Clock::duration interval_;
  Json::Value document_;
  Clock::time_point next_;  ///< when the agent is asked again
  Terminal terminal_;       ///< taken when there is something to show
  TopOrder order_ = TopOrder::kId;
  std::string why_;  ///< there is no newer answer
  bool ended_ = false;
};

void printOnce(const AgentTarget& target, double interval, bool json) {
  const Json::Value before = documentOf(target, {});
  std::this_thread::sleep_for(durationOf(interval));
  const Json::Value document = documentOf(target, before);
  if (json) {
    print(common::jsonText(document));
    return;
  }
  for (const ScreenLine& line : topScreen(document, TopOrder::kId, kWholeScreen)) {
    print(line.text + "\n");
  }
}

}  // namespace

void addTopOptions(CLI::App& command, TopOptions& options) {
  command.add_option("--interval", options.interval, "Seconds (0.1 to 3600) between two answers")
      ->check(CLI::Range(0.1, 3600.0))
      ->capture_default_str();
  command.add_flag("--once", options.once, "Print one screen as lines, or with --json as JSON");
  command.footer(kTopText);
}

void top(const AgentTarget& target, const TopOptions& options, bool json) {
  if (options.once) {
    printOnce(target, options.interval, json);
  } else if (json) {
    throw Failure(kUsage, "--json needs --once beside it");
  } else if (!Terminal::isThere()) {
    throw Failure(kUsage,
                  "standard input or output is no terminal; --once prints one screen without");
  } else {
    LiveTop(target, options.interval).run();
  }
}

}  // namespace qov::ctl
