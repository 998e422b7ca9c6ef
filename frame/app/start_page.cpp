#include "frame/app/start_page.h"

#include <sys/mman.h>

#include <algorithm>
#include <cassert>
#include <cstring>
#include <new>

namespace qov {

static_assert(std::atomic<StartOutcome>::is_always_lock_free &&
                  std::atomic<pid_t>::is_always_lock_free,
              "processes share them, and signal handlers use them");

void LastLines::add(std::string_view line) {
  line = line.substr(0, kRoom - 1);
  while (size_ + line.size() + 1 > kRoom) {
    const char* const firstEnd = std::find(text_.data(), text_.data() + size_, '\n');
    assert(firstEnd != text_.data() + size_);  // each line has one
    const auto gone = static_cast<std::size_t>(firstEnd - text_.data()) + 1;
    size_ -= gone;
    std::memmove(text_.data(), text_.data() + gone, size_);
  }
  std::copy(line.begin(), line.end(), text_.data() + size_);
  size_ += line.size();
  text_[size_++] = '\n';
}

bool StartPage::settle(StartOutcome result) {
  StartOutcome open = StartOutcome::kOpen;
  const bool first = outcome.compare_exchange_strong(open, result);
  ::sem_post(&news);
  return first;
}

std::string beforeItRan(const std::string& steps) {
  return " before it ran" + (steps.empty() ? "" : ", while " + steps);
}

void UnmapStartPage::operator()(StartPage* page) const {
  ::munmap(page, sizeof *page);
}

StartPagePtr makeStartPage() {
  void* const memory =
      ::mmap(nullptr, sizeof(StartPage), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) {
    return nullptr;
  }
  StartPagePtr page(new (memory) StartPage);
  return ::sem_init(&page->news, 1, 0) == 0 ? std::move(page) : nullptr;
}

}  // namespace qov
