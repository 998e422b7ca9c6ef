#include "task/task_roster.h"

#include <qovpub/qov_task.h>

#include <utility>

namespace qov {

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
