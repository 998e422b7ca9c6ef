#include "thing.h"

#include <map>
#include <string>

struct ThingInside {
#ifdef INSIDE_MORE
  int more = 0;
#endif
  std::map<std::string, int> texts;
};

Thing::Thing() : inside_(new ThingInside) {}
Thing::~Thing() {
  delete inside_;
}
int Thing::first() {
  return static_cast<int>(inside_->texts["first"] + number_);
}
ThingValue Thing::value() const {
  return static_cast<ThingValue>(inside_->texts.size());
}
#ifdef VIRTUAL_BEFORE
int Thing::before() {
  return 1;
}
#endif
#ifdef VIRTUAL_BEHIND
int Thing::behind() {
  return 1;
}
#endif
#ifndef FUNCTION_GONE
int Thing::get() const {
  return static_cast<int>(value());
}
#endif
#ifdef FUNCTION_MORE
int Thing::more() const {
  return 2;
}
#endif
