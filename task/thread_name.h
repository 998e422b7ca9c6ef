#ifndef QOV_TASK_THREAD_NAME_H
#define QOV_TASK_THREAD_NAME_H

#include <array>
#include <cstddef>

namespace qov {

/// The name of a module's thread, as ps -L, top -H and debuggers show it: "m20-leader",
/// "m20-worker-3". The system takes 15 characters. A longer name keeps the first letter of its role
/// ("m255-w-1000"); what is still too long loses its end.
class ThreadName {
 public:
  /// `number` counts the threads of one role from 1; 0 for a role that has only one.
  ThreadName(unsigned int moduleId, const char* role, std::size_t number = 0);

  /// A name that a module has given.
  explicit ThreadName(const char* whole);

  const char* text() const { return text_.data(); }

 private:
  /// Returns how long the name would be with all its characters.
  std::size_t write(unsigned int moduleId, const char* role, int letters, std::size_t number);

  std::array<char, 16> text_{};
};

}  // namespace qov

#endif
