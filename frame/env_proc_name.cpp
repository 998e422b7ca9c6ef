#include "frame/env_proc_name.h"

#include <qovpub/qov_utility.h>
#include <unistd.h>

#include <array>

namespace qov {
namespace {

std::size_t startOfName(const std::string& path) {
  std::size_t separator = path.rfind('/');
  if (separator == std::string::npos) {
    separator = path.rfind('\\');
  }
  return separator == std::string::npos ? 0 : separator + 1;
}

}  // namespace

std::string procNameFromPath(const std::string& path) {
  const std::size_t start = startOfName(path);
  const std::size_t dot = path.rfind('.');
  if (dot == std::string::npos) {
    return path.substr(start);
  }
  return start < dot ? path.substr(start, dot - start) : std::string();
}

}  // namespace qov

void CProcInfo::getProcName(std::string& name) {
  constexpr std::size_t kLongestTarget = 260;
  std::array<char, kLongestTarget + 1> target{};
  const std::string link = "/proc/" + std::to_string(::getpid()) + "/exe";
  if (::readlink(link.c_str(), target.data(), kLongestTarget) < 0) {
    target[0] = '\0';
  }
  name = qov::procNameFromPath(target.data());
}
