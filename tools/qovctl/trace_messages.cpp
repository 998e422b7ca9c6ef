#include "tools/qovctl/trace_messages.h"

#include <algorithm>
#include <map>
#include <set>

namespace qov::ctl {
namespace {

using Kind = TraceStep::Kind;

bool isSent(const TraceStep& step) {
  return step.kind == Kind::kSend && step.type != TraceStep::kResponse;
}

}  // namespace

TraceMessages::TraceMessages(const TraceLog& log) : log_(log), messageOf_(log.steps().size()) {
  TraceMessage all(log.steps().size());
  for (std::size_t i = 0; i < all.size(); ++i) {
    all[i] = i;
  }
  sortByTime(all);
  std::map<TraceStep::Key, std::size_t> last;
  for (const std::size_t index : all) {
    const auto [known, isNew] = last.try_emplace(step(index).key(), messages_.size());
    if (isNew || isSent(step(index))) {
      known->second = messages_.size();
      messages_.emplace_back();
    }
    messages_[known->second].push_back(index);
    messageOf_[index] = known->second;
  }
}

std::optional<std::int64_t> TraceMessages::wait(const TraceMessage& message) const {
  const TraceStep& first = step(message.front());
  if (!isSent(first) || first.type != TraceStep::kRequest) {
    return std::nullopt;
  }
  for (const std::size_t index : message) {
    if (step(index).kind == Kind::kAnswer) {
      return step(index).time - first.time;
    }
  }
  return std::nullopt;
}

std::optional<std::size_t> TraceMessages::slowest(std::optional<std::uint32_t> serial) const {
  constexpr std::int64_t kUnanswered = -1;
  std::optional<std::size_t> found;
  std::int64_t longest = kUnanswered;
  for (std::size_t i = 0; i < messages_.size(); ++i) {
    const TraceStep& first = step(messages_[i].front());
    if (serial && (first.serial != *serial || first.type != TraceStep::kRequest)) {
      continue;
    }
    const auto span = wait(messages_[i]);
    if (span ? *span > longest : serial && !found) {
      longest = span.value_or(kUnanswered);
      found = i;
    }
  }
  return found;
}

TraceMessage TraceMessages::withCaused(std::size_t message) const {
  TraceMessage all;
  std::set<std::size_t> known{message};
  std::vector<std::size_t> open{message};
  while (!open.empty()) {
    const TraceMessage& next = messages_[open.back()];
    open.pop_back();
    all.insert(all.end(), next.begin(), next.end());
    for (const std::size_t index : next) {
      if (step(index).kind != Kind::kBegin) {
        continue;
      }
      for (const std::size_t caused : causedBy(index)) {
        if (known.insert(caused).second) {
          open.push_back(caused);
        }
      }
    }
  }
  sortByTime(all);
  return all;
}

std::vector<std::size_t> TraceMessages::causedBy(std::size_t begin) const {
  std::vector<std::size_t> caused;
  // Steps of one thread are in their order.
  for (std::size_t i = begin + 1; i < log_.steps().size(); ++i) {
    if (step(i).thread != step(begin).thread) {
      continue;
    }
    if (step(i).kind == Kind::kEnd || step(i).kind == Kind::kBegin) {
      break;
    }
    if (isSent(step(i))) {
      caused.push_back(messageOf_[i]);
    }
  }
  return caused;
}

void TraceMessages::sortByTime(TraceMessage& steps) const {
  std::sort(steps.begin(), steps.end(), [this](std::size_t one, std::size_t other) {
    return step(one).time != step(other).time ? step(one).time < step(other).time : one < other;
  });
}

}  // namespace qov::ctl
