#include "tools/qovctl/trace_diagram.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <map>
#include <set>
#include <utility>

#include "tools/qovctl/trace_messages.h"
#include "tools/qovctl/trace_words.h"

namespace qov::ctl {
namespace {

using Kind = TraceStep::Kind;

/// More lines would hide what is there to be seen.
constexpr std::size_t kMostSteps = 200;

std::string format(const char* pattern, double value) {
  std::array<char, 64> bytes{};
  std::snprintf(bytes.data(), bytes.size(), pattern, value);
  return bytes.data();
}

std::string timeText(std::int64_t nanoseconds) {
  constexpr std::int64_t kMicrosecond = 1000;
  constexpr std::int64_t kMillisecond = 1000000;
  constexpr std::int64_t kSecond = 1000000000;
  const auto value = static_cast<double>(nanoseconds);
  if (nanoseconds < kMillisecond) {
    return format("+%.0f us", value / kMicrosecond);
  }
  return nanoseconds < kSecond ? format("+%.2f ms", value / kMillisecond)
                               : format("+%.3f s", value / kSecond);
}

/// As the logs have it.
std::string serialText(std::uint32_t serial) {
  std::array<char, 16> bytes{};
  std::snprintf(bytes.data(), bytes.size(), "0x%x", serial);
  return bytes.data();
}

/// Other characters may mean something to Mermaid.
std::string plain(std::string text) {
  for (char& c : text) {
    const bool good = std::isalnum(static_cast<unsigned char>(c)) != 0 ||
                      std::string_view(" -_./,:").find(c) != std::string_view::npos;
    c = good ? c : '_';
  }
  return text;
}

class Diagram {
 public:
  Diagram(const TraceLog& log, std::int64_t start) : log_(log), start_(start) {}

  void add(const TraceStep& step) {
    switch (step.kind) {
      case Kind::kSend:
        addSend(step);
        break;
      case Kind::kDispatch:
        moveTo(leader(step), step, typeName(step.type) + " " + std::to_string(step.operation));
        break;
      case Kind::kBegin:
        moveTo(worker(step), step, "handle " + std::to_string(step.operation));
        lines_ += "    activate " + worker(step) + "\n";
        active_.insert(worker(step));
        break;
      case Kind::kEnd:
        addEnd(step);
        break;
      case Kind::kAnswer:
        moveTo(worker(step), step, "answer to " + std::to_string(step.operation));
        break;
      case Kind::kTimeOut:
        note(sender(step), step, instantName(step));
        break;
      case Kind::kDrop:
        note(leader(step), step, instantName(step));
    }
  }

  void addRest(std::size_t count) {
    if (count > 0) {
      lines_ += "    Note over P1: and " + std::to_string(count) + " steps more\n";
    }
  }

  std::string text() const { return participants_ + lines_; }

 private:
  std::string leader(const TraceStep& step) {
    return participant(-1 - std::int64_t{step.module}, "leader of " + log_.module(step.module));
  }
  std::string worker(const TraceStep& step) {
    return participant(step.thread, log_.thread(step.thread));
  }
  /// The thread that has sent the request; if that is not known, the leader.
  std::string sender(const TraceStep& step) {
    const auto found = senders_.find(step.key());
    return found != senders_.end() ? found->second : leader(step);
  }

  /// Its alias. `id` is that of a thread, or negative for a leader.
  std::string participant(std::int64_t id, const std::string& name) {
    const auto [known, isNew] = aliases_.try_emplace(id, "P" + std::to_string(aliases_.size() + 1));
    if (isNew) {
      // Threads may have one name.
      const std::string label = plain(name);
      const bool again = !labels_.insert(label).second;
      participants_ += "    participant " + known->second + " as " + label +
                       (again ? " " + std::to_string(id) : "") + "\n";
    }
    return known->second;
  }

  /// Where the message, or the response to it, is: empty if that is not known.
  std::string& place(const TraceStep& step) {
    return places_[{step.key(), step.type == TraceStep::kResponse}];
  }

  void addSend(const TraceStep& step) {
    place(step) = worker(step);
    if (step.type != TraceStep::kResponse) {
      senders_[step.key()] = worker(step);
    }
  }

  void moveTo(const std::string& where, const TraceStep& step, const std::string& what) {
    std::string& from = place(step);
    if (from.empty()) {
      note(where, step, what);
    } else {
      lines_ += "    " + from + (step.type == TraceStep::kResponse ? "-->>" : "->>") + where +
                ": " + what + ", " + time(step) + "\n";
    }
    from = where;
  }

  void addEnd(const TraceStep& step) {
    const std::string where = worker(step);
    note(where, step, "done with " + std::to_string(step.operation));
    if (const auto found = active_.find(where); found != active_.end()) {
      active_.erase(found);
      lines_ += "    deactivate " + where + "\n";
    }
  }

  void note(const std::string& where, const TraceStep& step, const std::string& what) {
    lines_ += "    Note over " + where + ": " + plain(what) + ", " + time(step) + "\n";
  }

  std::string time(const TraceStep& step) const { return timeText(step.time - start_); }

  const TraceLog& log_;
  const std::int64_t start_;
  std::string lines_;
  std::string participants_;
  std::map<std::int64_t, std::string> aliases_;
  std::set<std::string> labels_;
  std::map<std::pair<TraceStep::Key, bool>, std::string> places_;  ///< of responses: true
  std::map<TraceStep::Key, std::string> senders_;
  std::multiset<std::string> active_;
};

}  // namespace

std::string traceDiagram(const TraceLog& log, std::optional<std::uint32_t> serial) {
  const TraceMessages messages(log);
  const auto chosen = messages.slowest(serial);
  if (!chosen) {
    return {};
  }
  const TraceMessage steps = messages.withCaused(*chosen);
  const TraceStep& first = log.steps()[steps.front()];
  Diagram diagram(log, first.time);
  const std::size_t shown = std::min(steps.size(), kMostSteps);
  for (std::size_t i = 0; i < shown; ++i) {
    diagram.add(log.steps()[steps[i]]);
  }
  diagram.addRest(steps.size() - shown);
  return "sequenceDiagram\n    title: request " + std::to_string(first.operation) + ", SN " +
         serialText(first.serial) + "\n" + diagram.text();
}

}  // namespace qov::ctl
