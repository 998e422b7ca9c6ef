#include "task/task_roster.h"

#include <qovpub/qov_task.h>

#include <array>
#include <utility>

namespace qov {

namespace {

std::mutex groupsMutex;

/// How many managers there are for each module's group. The module loader lets in one for each.
std::array<int, 256> managersIn{};

}  // namespace

bool TaskRoster::add(CQOV_Task* task) {
  const std::lock_guard<std::mutex> lock(mutex_);
  CQOV_Task** const place = placeOf(task);
  if (*place == nullptr) {
    *place = task;
  }
  task->told_ = stopping_;
  task->joined_ = false;
  return !stopping_;
}

void TaskRoster::remove(CQOV_Task* task) {
  const std::lock_guard<std::mutex> lock(mutex_);
  CQOV_Task** const place = placeOf(task);
  if (*place != nullptr) {
    *place = std::exchange(task->nextInRoster_, nullptr);
  }
}

void TaskRoster::enterGroup(int group) {
  const std::lock_guard<std::mutex> lock(groupsMutex);
  const auto number = static_cast<std::size_t>(group);
  if (number < managersIn.size()) {
    group_ = number;
    ++managersIn[number];
  }
}

bool TaskRoster::leaveGroup() {
  const std::lock_guard<std::mutex> lock(groupsMutex);
  const std::optional<std::size_t> group = std::exchange(group_, std::nullopt);
  return group && --managersIn[*group] == 0;
}

void TaskRoster::beginStop() {
  const std::lock_guard<std::mutex> lock(mutex_);
  stopping_ = true;
}

CQOV_Task* TaskRoster::nextToTell() {
  return markNext(&CQOV_Task::told_);
}

CQOV_Task* TaskRoster::nextToJoin() {
  return markNext(&CQOV_Task::joined_);
}

CQOV_Task** TaskRoster::placeOf(const CQOV_Task* task) {
  CQOV_Task** place = &first_;
  while (*place != nullptr && *place != task) {
    place = &(*place)->nextInRoster_;
  }
  return place;
}

CQOV_Task* TaskRoster::markNext(bool CQOV_Task::*mark) {
  const std::lock_guard<std::mutex> lock(mutex_);
  CQOV_Task* task = first_;
  while (task != nullptr && task->*mark) {
    task = task->nextInRoster_;
  }
  if (task != nullptr) {
    task->*mark = true;
  }
  return task;
}

}  // namespace qov
