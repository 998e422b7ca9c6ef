#ifndef QOV_TASK_AGE_LIST_H
#define QOV_TASK_AGE_LIST_H

#include <cstddef>

namespace qov {

/// What has begun and not ended, in the order of its begin(). Needs no memory: each Node is derived
/// from Link.
///
/// Thread: one at a time.
/// Owns:   nothing.
template <class Node>
class AgeList {
 public:
  class Link {
   public:
    Node* newer() const { return newer_; }

   private:
    friend class AgeList;
    Node* older_ = nullptr;
    Node* newer_ = nullptr;
  };

  void add(Node& node) {
    // Of two that begin at once the later one may come first.
    Node* older = newest_;
    while (older != nullptr && older->begin() > node.begin()) {
      older = linkOf(*older).older_;
    }
    Node*& behind = older != nullptr ? linkOf(*older).newer_ : oldest_;
    linkOf(node).older_ = older;
    linkOf(node).newer_ = behind;
    (behind != nullptr ? linkOf(*behind).older_ : newest_) = &node;
    behind = &node;
    ++size_;
  }

  void remove(Node& node) {
    const Link& gone = linkOf(node);
    (gone.older_ != nullptr ? linkOf(*gone.older_).newer_ : oldest_) = gone.newer_;
    (gone.newer_ != nullptr ? linkOf(*gone.newer_).older_ : newest_) = gone.older_;
    --size_;
  }

  /// Null without any.
  Node* oldest() const { return oldest_; }
  std::size_t size() const { return size_; }

 private:
  static Link& linkOf(Node& node) { return node; }

  Node* oldest_ = nullptr;
  Node* newest_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace qov

#endif
