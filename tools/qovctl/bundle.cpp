#include "tools/qovctl/bundle.h"

#include <array>
#include <new>

#include "tools/qovctl/regular_file.h"

namespace qov::ctl {

std::string utcText(std::time_t time, const char* format) {
  std::tm parts{};
  std::array<char, 64> text{};
  ::gmtime_r(&time, &parts);
  std::strftime(text.data(), text.size(), format, &parts);
  return text.data();
}

void Bundle::add(const std::string& name, const std::string& text) {
  files_.push_back({name, text, now_});
}

void Bundle::addFile(const std::string& name, const std::string& path,
                     std::string (*of)(std::string_view)) {
  attempt([&] {
    constexpr std::size_t kMost = std::size_t{16} << 20;
    const RegularFile file(path);
    const std::string content = file.read(kMost);
    if (file.size() > kMost) {
      miss(path + ": all behind the first 16 MiB");
    }
    add({name, of != nullptr ? of(content) : content, file.status().st_mtime});
  });
}

void Bundle::attempt(const std::function<void()>& collect) try {
  collect();
} catch (const std::bad_alloc&) {
  throw;
} catch (const std::exception& e) {
  miss(e.what());
}

}  // namespace qov::ctl
