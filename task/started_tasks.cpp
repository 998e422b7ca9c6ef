#include "task/started_tasks.h"

#include <array>
#include <utility>

#include "task/task_context.h"

namespace qov {

namespace {

std::mutex groupsMutex;

/// How many managers there are for each module's group. The module loader lets in one for each.
std::array<int, 256> managersIn{};

}  // namespace

bool StartedTasks::add(CQOV_Task* task) {
  const std::lock_guard<std::mutex> lock(mutex_);
  CQOV_Task** const place = placeOf(task);
  if (*place == nullptr) {
    *place = task;
  }
  TaskContext& context = TaskContext::of(*task);
  context.told_ = stopping_;
  context.joined_ = false;
  return !stopping_;
}

void StartedTasks::remove(CQOV_Task* task) {
  const std::lock_guard<std::mutex> lock(mutex_);
  CQOV_Task** const place = placeOf(task);
  if (*place != nullptr) {
    *place = std::exchange(TaskContext::of(*task).nextStarted_, nullptr);
  }
}

void StartedTasks::enterGroup(int group) {
  const std::lock_guard<std::mutex> lock(groupsMutex);
  const auto number = static_cast<std::size_t>(group);
  if (number < managersIn.size()) {
    group_ = number;
    ++managersIn[number];
  }
}

bool StartedTasks::leaveGroup() {
  const std::lock_guard<std::mutex> lock(groupsMutex);
  const std::optional<std::size_t> group = std::exchange(group_, std::nullopt);
  return group && --managersIn[*group] == 0;
}

void StartedTasks::beginStop() {
  const std::lock_guard<std::mutex> lock(mutex_);
  stopping_ = true;
}

CQOV_Task* StartedTasks::nextToTell() {
  return markNext(&TaskContext::told_);
}

CQOV_Task* StartedTasks::nextToJoin() {
  return markNext(&TaskContext::joined_);
}

CQOV_Task** StartedTasks::placeOf(const CQOV_Task* task) {
  CQOV_Task** place = &first_;
  while (*place != nullptr && *place != task) {
    place = &TaskContext::of(**place).nextStarted_;
  }
  return place;
}

CQOV_Task* StartedTasks::markNext(bool TaskContext::*mark) {
  const std::lock_guard<std::mutex> lock(mutex_);
  CQOV_Task* task = first_;
  while (task != nullptr && TaskContext::of(*task).*mark) {
    task = TaskContext::of(*task).nextStarted_;
  }
  if (task != nullptr) {
    TaskContext::of(*task).*mark = true;
  }
  return task;
}

}  // namespace qov
