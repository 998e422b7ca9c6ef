#include "frame/current_step.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace qov {

namespace {

std::mutex stepsLock;
// Guarded by stepsLock.
CurrentStep* newest = nullptr;

}  // namespace

CurrentStep::CurrentStep(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::vsnprintf(text_.data(), text_.size(), format, args);
  va_end(args);
  const std::lock_guard<std::mutex> held(stepsLock);
  outer_ = newest;
  newest = this;
}

CurrentStep::~CurrentStep() {
  const std::lock_guard<std::mutex> held(stepsLock);
  CurrentStep** place = &newest;
  while (*place != this) {
    place = &(*place)->outer_;
  }
  *place = outer_;
}

std::string CurrentStep::open() {
  std::string all;
  const std::lock_guard<std::mutex> held(stepsLock);
  for (const CurrentStep* step = newest; step != nullptr; step = step->outer_) {
    all = all.empty() ? step->text_.data() : step->text_.data() + (", " + all);
  }
  return all;
}

}  // namespace qov
