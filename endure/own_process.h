#ifndef QOV_ENDURE_OWN_PROCESS_H
#define QOV_ENDURE_OWN_PROCESS_H

#include <cstddef>
#include <cstdint>

namespace qov::endure {

/// How many threads this process has, and how many of them have a module's name.
struct OwnThreads {
  std::size_t all_ = 0;
  std::size_t modules_ = 0;
};
OwnThreads ownThreads();

/// What this process holds in memory, in bytes, after what it has freed was given back.
struct OwnMemory {
  std::int64_t resident_ = 0;
  std::int64_t heap_ = 0;  ///< allocated and not freed
};
OwnMemory ownMemory();

}  // namespace qov::endure

#endif
