#include <utility>

#include "tools/qovctl/each_line.h"
#include "tools/qovctl/secrets.h"

namespace qov::ctl {
namespace {

constexpr std::size_t kNone = std::string_view::npos;
constexpr std::size_t kLongestLine = 4095;  ///< that an agent takes as one

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  return first == kNone ? std::string_view()
                        : text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

bool isKey(std::string_view text) {
  const std::string_view key = trimmed(text);
  return !key.empty() && isName(key);
}

/// Goes through a file line by line.
class IniLines {
 public:
  /// To an agent the rest of a line beyond kLongestLine is a line of its own, which may begin a
  /// section, or go on in one.
  std::string read(std::string_view line) {
    const bool isSecretRest = line.size() > kLongestLine && (isSecretSection_ || looksSecret(line));
    std::string shown = readOne(line);
    isSecretSection_ = isSecretSection_ || isSecretRest;
    return shown;
  }

 private:
  std::string readOne(std::string_view line) {
    const std::string_view text = trimmed(line);
    const std::size_t begin = text.rfind("-----BEGIN");
    if (isInBlock_ || begin != kNone) {
      const std::size_t end = text.rfind("-----END");
      // Where files were put together without a newline, the next block begins behind an end.
      isInBlock_ = end == kNone || (begin != kNone && begin > end);
      if (!text.empty() && text.front() == '[') {
        beginSection(text);
      }
      return blanked(line);
    }
    if (text.empty()) {
      return std::string(line);
    }
    switch (text.front()) {
      case ';':
      case '#':
        return comment(line);
      case '[':
        return header(line);
      default:
        const bool goesOn = std::exchange(isInValue_, false);
        return value(line, isSecretSection_, goesOn || line.find_first_of(" \t") == 0);
    }
  }

  std::string comment(std::string_view line) {
    const std::size_t begin = line.find_first_not_of(" \t;#");
    if (begin == kNone) {
      return std::string(line);
    }
    const std::string_view text = line.substr(begin);
    std::string sign(line.substr(0, begin));
    if (text.front() == '[') {
      isSecretComment_ = looksSecret(text);
    }
    const bool isSecretPlace = isSecretSection_ || isSecretComment_;
    const std::size_t equals = text.find('=');
    if (equals != kNone && isKey(text.substr(0, equals))) {
      return sign + value(text, isSecretPlace, isInValue_);
    }
    return sign + (isSecretPlace || looksSecret(text) ? blanked(text) : withoutUser(text));
  }

  std::string header(std::string_view line) {
    beginSection(line);
    const std::size_t end = line.find(']');
    return end == kNone ? blanked(line)
                        : withoutUser(line.substr(0, end + 1)) + blanked(line.substr(end + 1));
  }

  /// Where ACE does: it takes the name up to the last "]", and none where that has only separators.
  void beginSection(std::string_view line) {
    const std::string_view text = line.substr(0, line.find('\0'));
    const std::size_t end = text.rfind(']');
    if (end == kNone) {
      isSecretSection_ = isSecretSection_ || looksSecret(line);
      return;
    }
    const std::size_t begin = text.find('[') + 1;
    if (text.substr(begin, end - begin).find_first_not_of("/\\") != kNone) {
      isSecretSection_ = looksSecret(line);
      isSecretComment_ = false;
      isInValue_ = false;
    }
  }

  /// `mayGoOn`: the line may belong to a value in several lines.
  std::string value(std::string_view line, bool isSecretPlace, bool mayGoOn) {
    const std::size_t equals = line.find('=');
    const std::string_view key = line.substr(0, equals);
    if (equals == kNone || !isKey(key)) {
      isInValue_ = true;
      return blanked(line);
    }
    const std::string_view behind = line.substr(equals + 1);
    const std::string_view text = trimmed(behind);
    // Base64 fills up its last line with "=", so that it passes for a key without a value.
    if (text == "=" || (text.empty() && mayGoOn)) {
      return blanked(line);
    }
    const bool isSecret = isSecretPlace || looksSecret(line);
    isInValue_ = isInValue_ || (isSecret && !text.empty());
    return std::string(key) + "=" + (isSecret ? blanked(behind) : withoutUser(behind));
  }

  bool isSecretSection_ = false;
  bool isSecretComment_ = false;  ///< a section that is commented out has such a name
  bool isInBlock_ = false;
  /// A value in several lines may go on: the line before, comments apart, is none, or a secret.
  bool isInValue_ = false;
};

}  // namespace

std::string withoutSecretsOfIni(std::string_view text) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  const std::size_t begin =
      text.substr(0, kByteOrderMark.size()) == kByteOrderMark ? kByteOrderMark.size() : 0;
  IniLines lines;
  return std::string(text.substr(0, begin)) +
         eachLine(text.substr(begin), [&lines](std::string_view line) { return lines.read(line); });
}

}  // namespace qov::ctl
