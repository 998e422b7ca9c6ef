#ifndef QOV_TASK_AGE_LIST_COPY_H
#define QOV_TASK_AGE_LIST_COPY_H

#include <cstddef>
#include <mutex>
#include <vector>

#include "task/age_list.h"

namespace qov {

/// Appends to `all` what `copy` makes of each of `list`, which `mutex` guards, the oldest first.
/// Memory is found without the lock: whoever begins or ends meanwhile waits for the copying alone.
template <class Node, class Value, class Copy>
void copyAll(std::mutex& mutex, const AgeList<Node>& list, std::vector<Value>& all, Copy copy) {
  constexpr std::size_t kSomeMore = 8;
  for (std::size_t needed = kSomeMore;;) {
    all.reserve(all.size() + needed);
    const std::lock_guard<std::mutex> held(mutex);
    if (list.size() <= all.capacity() - all.size()) {
      for (const Node* node = list.oldest(); node != nullptr; node = node->newer()) {
        all.push_back(copy(*node));
      }
      return;
    }
    needed = list.size() + kSomeMore;
  }
}

}  // namespace qov

#endif
