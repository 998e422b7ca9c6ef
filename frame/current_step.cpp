#include "frame/current_step.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>

namespace qov {

namespace {

std::mutex stepsLock;
// Guarded by stepsLock.
CurrentStep* newest = nullptr;
CurrentStep::Text* shown = nullptr;

}  // namespace

CurrentStep::CurrentStep(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::vsnprintf(text_.data(), text_.size(), format, args);
  va_end(args);
  const std::lock_guard<std::mutex> held(stepsLock);
  outer_ = newest;
  newest = this;
  show();
}

CurrentStep::~CurrentStep() {
  const std::lock_guard<std::mutex> held(stepsLock);
  CurrentStep** place = &newest;
  while (*place != this) {
    place = &(*place)->outer_;
  }
  *place = outer_;
  show();
}

std::string CurrentStep::open() {
  const std::lock_guard<std::mutex> held(stepsLock);
  return all();
}

void CurrentStep::showIn(Text* place) {
  const std::lock_guard<std::mutex> held(stepsLock);
  shown = place;
  show();
}

std::string CurrentStep::all() {
  std::string all;
  for (const CurrentStep* step = newest; step != nullptr; step = step->outer_) {
    all = all.empty() ? step->text_.data() : step->text_.data() + (", " + all);
  }
  return all;
}

void CurrentStep::show() {
  if (shown != nullptr) {
    // The last byte stays zero, so that a reader finds an end at any time.
    std::snprintf(shown->data(), shown->size(), "%s", all().c_str());
  }
}

}  // namespace qov
