#include "frame/env/current_step.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>

namespace qov {

namespace {

std::mutex stepsLock;
// Guarded by stepsLock.
CurrentStep* newest = nullptr;
CurrentStep::Text* shown = nullptr;

/// Appends to the `used` characters at `place` as much of `text` as the room holds; gives the new
/// length.
std::size_t append(const char* text, char* place, std::size_t used, std::size_t room) {
  const std::size_t count = std::min(std::strlen(text), room - 1 - used);
  std::memcpy(place + used, text, count);
  place[used + count] = '\0';
  return used + count;
}

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
  const std::size_t separated = before != 0 ? append(", ", place, before, room) : before;
  return append(step->text_.data(), place, separated, room);
}

void CurrentStep::show() {
  if (shown != nullptr) {
    // The last byte stays zero, so that a reader finds an end at any time.
    write(newest, shown->data(), shown->size());
  }
}

}  // namespace qov
