#include "tools/qovctl/secrets.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "tools/qovctl/each_line.h"

namespace qov::ctl {
namespace {

constexpr std::array<std::string_view, 19> kWords{
    "pass",      "pw",  "secret", "token", "key",  "priv", "cred",  "auth",    "cookie",  "bearer",
    "community", "psk", "ssk",    "jwt",   "hash", "salt", "login", "session", "kennwort"};

bool isInName(unsigned char c) {
  return std::isalnum(c) != 0 || c == '_' || c == '-' || c == '.';
}

}  // namespace

bool looksSecret(std::string_view text) {
  std::string lower(text);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return std::any_of(kWords.begin(), kWords.end(),
                     [&](std::string_view word) { return lower.find(word) != std::string::npos; });
}

std::string withoutUser(std::string_view text) {
  constexpr std::string_view kScheme = "://";
  const std::size_t at = text.rfind('@');
  if (at == std::string_view::npos) {
    return std::string(text);
  }
  if (text.find('\n') != std::string_view::npos) {
    return blanked(text);  // the user may begin lines before its "@"
  }
  // What looks like one behind a ":" may be a part of the password.
  const std::size_t scheme = text.find_first_of(":@");
  const bool isScheme = text.substr(scheme, kScheme.size()) == kScheme;
  const std::size_t begin = isScheme ? scheme + kScheme.size() : 0;
  return std::string(text.substr(0, begin)).append(kBlank).append(text.substr(at));
}

std::string blanked(std::string_view text) {
  return eachLine(text, [](std::string_view line) {
    const std::size_t begin = line.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) {
      return std::string(line);
    }
    const char* const end = line.back() == '\r' ? "\r" : "";
    return std::string(line.substr(0, begin)).append(kBlank).append(end);
  });
}

bool isName(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](unsigned char c) { return isInName(c); });
}

}  // namespace qov::ctl
