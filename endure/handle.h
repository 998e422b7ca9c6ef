#ifndef QOV_ENDURE_HANDLE_H
#define QOV_ENDURE_HANDLE_H

#include <unistd.h>

#include <utility>

namespace qov::endure {

/// A descriptor that closes itself; below zero for none.
class Handle {
 public:
  Handle() = default;
  explicit Handle(int number) : number_(number) {}
  Handle(Handle&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Handle& operator=(Handle&& other) noexcept {
    close();
    number_ = std::exchange(other.number_, -1);
    return *this;
  }
  ~Handle() { close(); }

  int get() const { return number_; }
  void close() {
    if (number_ >= 0) {
      ::close(std::exchange(number_, -1));
    }
  }

 private:
  int number_ = -1;
};

}  // namespace qov::endure

#endif
