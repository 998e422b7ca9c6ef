#include "task/thread_name.h"

#include <algorithm>
#include <cstdio>

namespace qov {

ThreadName::ThreadName(unsigned int moduleId, const char* role, std::size_t number) {
  constexpr int kAllLetters = 16;
  if (write(moduleId, role, kAllLetters, number) >= text_.size()) {
    write(moduleId, role, 1, number);
  }
}

ThreadName::ThreadName(const char* whole) {
  std::snprintf(text_.data(), text_.size(), "%s", whole);
}

std::size_t ThreadName::write(unsigned int moduleId, const char* role, int letters,
                              std::size_t number) {
  std::array<char, 64> whole{};
  const int length =
      number == 0 ? std::snprintf(whole.data(), whole.size(), "m%u-%.*s", moduleId, letters, role)
                  : std::snprintf(whole.data(), whole.size(), "m%u-%.*s-%zu", moduleId, letters,
                                  role, number);
  std::copy_n(whole.data(), text_.size() - 1, text_.data());
  return static_cast<std::size_t>(length);
}

}  // namespace qov
