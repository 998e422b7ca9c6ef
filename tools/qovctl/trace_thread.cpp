#include "tools/qovctl/trace_thread.h"

#include <algorithm>
#include <utility>

namespace qov::ctl {

RequestEnds::RequestEnds(const TraceLog& log) : log_(log) {
  for (std::size_t i = 0; i < log.steps().size(); ++i) {
    const TraceStep& step = log.steps()[i];
    const bool ends = step.kind == TraceStep::Kind::kTimeOut || step.kind == TraceStep::Kind::kDrop;
    if (ends && step.type == TraceStep::kRequest) {
      failures_.emplace(step.key(), i);
    } else if (step.kind == TraceStep::Kind::kBegin && step.type == TraceStep::kResponse) {
      later_.insert(step.key());
    }
  }
}

std::optional<std::size_t> RequestEnds::failure(std::size_t send, std::int64_t until) const {
  const TraceStep& sent = log_.steps()[send];
  const auto [first, last] = failures_.equal_range(sent.key());
  for (auto found = first; found != last; ++found) {
    const std::int64_t time = log_.steps()[found->second].time;
    if (time >= sent.time && time <= until) {
      return found->second;
    }
  }
  return std::nullopt;
}

void TraceThread::addSlices() {
  for (std::size_t i = 0; i < own_.size(); ++i) {
    switch (step(i).kind) {
      case Kind::kSend:
        send(i);
        break;
      case Kind::kAnswer:
        answer(i);
        break;
      case Kind::kBegin:
        begin(i);
        break;
      default:
        end(i);
    }
  }
  while (!open_.empty()) {
    cutHandler(log_.sections()[step(own_.size() - 1).section].end);
  }
}

bool TraceThread::isForContinuation(std::size_t index) const {
  return index + 1 < own_.size() && step(index + 1).kind == Kind::kBegin &&
         step(index + 1).type == TraceStep::kResponse && step(index + 1).key() == step(index).key();
}

void TraceThread::send(std::size_t index) {
  const TraceStep& sent = step(index);
  const TraceStep* const next = index + 1 < own_.size() ? &step(index + 1) : nullptr;
  if (sent.type != TraceStep::kRequest || ends_.isAskedLater(sent)) {
    addMark(index);
    return;
  }
  using Ending = TraceSlice::Ending;
  if (next != nullptr && next->kind == Kind::kAnswer && next->key() == sent.key()) {
    answered_ = true;
    add(TraceSlice::Kind::kWait, own_[index], own_[index + 1], sent.time, next->time,
        Ending::kAnswer);
    return;
  }
  const std::int64_t end = log_.sections()[sent.section].end;
  if (const auto failure = ends_.failure(own_[index], next != nullptr ? next->time : end)) {
    const TraceStep& failed = log_.steps()[*failure];
    add(TraceSlice::Kind::kWait, own_[index], *failure, sent.time, failed.time,
        failed.kind == Kind::kTimeOut ? Ending::kTimeOut : Ending::kDrop);
  } else if (next == nullptr) {
    add(TraceSlice::Kind::kWait, own_[index], std::nullopt, sent.time, end);
  } else {
    addMark(index);
  }
}

void TraceThread::answer(std::size_t index) {
  if (std::exchange(answered_, false)) {
    return;
  }
  if (isFirstOfSection(index) && !isForContinuation(index)) {
    add(TraceSlice::Kind::kWait, std::nullopt, own_[index],
        log_.sections()[step(index).section].begin, step(index).time, TraceSlice::Ending::kAnswer);
  } else {
    addMark(index);
  }
}

void TraceThread::begin(std::size_t index) {
  // Handlers begin within others at the stop alone: the end of this one is among what was lost.
  while (!open_.empty() && step(open_.back()).section != step(index).section) {
    cutHandler(log_.sections()[step(index - 1).section].end);
  }
  open_.push_back(index);
}

void TraceThread::end(std::size_t index) {
  const TraceStep& ended = step(index);
  const auto begun = std::find_if(open_.rbegin(), open_.rend(), [&](std::size_t open) {
    const TraceStep& begin = step(open);
    return begin.key() == ended.key() && begin.type == ended.type && begin.module == ended.module;
  });
  if (begun == open_.rend()) {
    const std::int64_t certain =
        open_.empty() ? std::max(closed_, log_.sections()[ended.section].begin) : ended.time;
    add(TraceSlice::Kind::kHandler, std::nullopt, own_[index], certain, ended.time);
  } else {
    const std::size_t open = *begun;
    while (open_.back() != open) {
      cutHandler(ended.time);
    }
    open_.pop_back();
    add(TraceSlice::Kind::kHandler, own_[open], own_[index], step(open).time, ended.time);
  }
  closed_ = ended.time;
}

void TraceThread::cutHandler(std::int64_t time) {
  const std::size_t open = open_.back();
  open_.pop_back();
  add(TraceSlice::Kind::kHandler, own_[open], std::nullopt, step(open).time, time);
  closed_ = time;
}

void TraceThread::add(TraceSlice::Kind kind, std::optional<std::size_t> first,
                      std::optional<std::size_t> last, std::int64_t begin, std::int64_t end,
                      TraceSlice::Ending ending) {
  slices_.push_back({kind, step(0).thread, begin, std::max(begin, end), first, last, ending});
}

void TraceThread::addMark(std::size_t index) {
  const std::int64_t time = step(index).time;
  add(TraceSlice::Kind::kMark, own_[index], own_[index], time, time + TraceSlice::kMarkSpan);
}

}  // namespace qov::ctl
