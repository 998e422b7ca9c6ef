#ifndef QOV_MODULES_STATUS_DESCRIPTOR_H
#define QOV_MODULES_STATUS_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

namespace qov::status {

/// A descriptor that is closed with its owner; -1 for none.
class Descriptor {
 public:
  explicit Descriptor(int number = -1) : number_(number) {}
  ~Descriptor() {
    if (number_ >= 0) {
      ::close(number_);
    }
  }
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return number_; }

 private:
  int number_;
};

}  // namespace qov::status

#endif
