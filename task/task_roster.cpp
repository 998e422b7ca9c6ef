#include "task/task_roster.h"

#include <algorithm>

namespace qov {

bool TaskRoster::add(CQOV_Task* task) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (std::find(tasks_.begin(), tasks_.end(), task) == tasks_.end()) {
    tasks_.push_back(task);
  }
  return !stopping_;
}

void TaskRoster::remove(const CQOV_Task* task) {
  const std::lock_guard<std::mutex> lock(mutex_);
  tasks_.erase(std::remove(tasks_.begin(), tasks_.end(), task), tasks_.end());
}

std::vector<CQOV_Task*> TaskRoster::beginStop() {
  const std::lock_guard<std::mutex> lock(mutex_);
  stopping_ = true;
  return tasks_;
}

std::vector<CQOV_Task*> TaskRoster::tasks() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return tasks_;
}

}  // namespace qov
