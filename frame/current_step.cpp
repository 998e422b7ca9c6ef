#include "frame/current_step.h"

#include <algorithm>
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
  constexpr std::size_t kRoom = 1024;
  std::array<char, kRoom> all;
  const std::lock_guard<std::mutex> held(stepsLock);
  write(newest, all.data(), all.size());
  return all.data();
}

void CurrentStep::showIn(Text* place) {
  const std::lock_guard<std::mutex> held(stepsLock);
  shown = place;
  show();
}

std::size_t CurrentStep::write(const CurrentStep* step, char* place, std::size_t room) {
  if (step == nullptr) {
    *place = '\0';
    return 0;
  }
  const std::size_t before = write(step->outer_, place, room);
  const int added = std::snprintf(place + before, room - before, "%s%s", before == 0 ? "" : ", ",
                                  step->text_.data());
  return std::min(before + static_cast<std::size_t>(added), room - 1);
}

void CurrentStep::show() {
  if (shown != nullptr) {
    // The last byte stays zero, so that a reader finds an end at any time.
    write(newest, shown->data(), shown->size());
  }
}

}  // namespace qov
