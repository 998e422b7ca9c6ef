#ifndef QOV_MODULES_STATUS_JSON_PARTS_H
#define QOV_MODULES_STATUS_JSON_PARTS_H

#include <json/value.h>

#include <chrono>
#include <initializer_list>
#include <utility>

namespace qov::status {

inline Json::Value object(std::initializer_list<std::pair<const char*, Json::Value>> members) {
  Json::Value made(Json::objectValue);
  for (const auto& [key, value] : members) {
    made[key] = value;
  }
  return made;
}

inline double secondsOf(std::chrono::nanoseconds span) {
  return std::chrono::duration<double>(span).count();
}

}  // namespace qov::status

#endif
