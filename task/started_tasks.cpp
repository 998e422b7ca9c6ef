#include "task/started_tasks.h"

#include <qovpub/qov_task.h>

#include <array>
#include <utility>

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
  task->told_ = stopping_;
  task->joined_ = false;
  return !stopping_;
}

void StartedTasks::remove(CQOV_Task* task) {
  const std::lock_guard<std::mutex> lock(mutex_);
  CQOV_Task** const place = placeOf(task);
  if (*place != nullptr) {
    *place = std::exchange(task->nextStarted_, nullptr);
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
  return markNext(&CQOV_Task::told_);
}

CQOV_Task* StartedTasks::nextToJoin() {
  return markNext(&CQOV_Task::joined_);
}

CQOV_Task** StartedTasks::placeOf(const CQOV_Task* task) {
  CQOV_Task** place = &first_;
  while (*place != nullptr && *place != task) {
    place = &(*place)->nextStarted_;
  }
  return place;
}

CQOV_Task* StartedTasks::markNext(bool CQOV_Task::*mark) {
  const std::lock_guard<std::mutex> lock(mutex_);
  CQOV_Task* task = first_;
  while (task != nullptr && task->*mark) {
    task = task->nextStarted_;
  }
  if (task != nullptr) {
    task->*mark = true;
  }
  return task;
}

}  // namespace qov
