// Leaks on purpose: leak detection must end it with an error.
#include <memory>

int main() {
  int* volatile lost = std::make_unique<int>(1).release();
  lost = nullptr;
  return lost == nullptr ? 0 : 1;
}
