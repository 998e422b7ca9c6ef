// The first byte of the input chooses the kind of a configuration file, the rest is its content.
#include "tools/qovctl/secrets.h"

#include <tinyxml.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "modules/common/octets.h"
#include "tests/support/fuzz.h"

using namespace qov;
using test::require;

namespace {

constexpr const char* kBlanks = " \t\r\n\v\f";

bool looksSecret(std::string_view text) {
  constexpr std::array<std::string_view, 19> kWords{
      "pass", "pw",     "secret",  "token",    "key",      "priv", "cred",
      "auth", "cookie", "bearer",  "psk",      "ssk",      "jwt",  "hash",
      "salt", "login",  "session", "kennwort", "community"};
  const auto isSame = [](unsigned char one, unsigned char other) {
    return std::tolower(one) == other;
  };
  return std::any_of(kWords.begin(), kWords.end(), [&](std::string_view word) {
    return std::search(text.begin(), text.end(), word.begin(), word.end(), isSame) != text.end();
  });
}

bool isName(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](unsigned char character) {
    return std::isalnum(character) != 0 || character == '_' || character == '-' || character == '.';
  });
}

std::string trimmed(const std::string& text) {
  const std::size_t begin = text.find_first_not_of(kBlanks);
  return begin == std::string::npos
             ? ""
             : text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

std::vector<std::string> linesOf(std::string text) {
  std::vector<std::string> lines;
  while (!text.empty()) {
    lines.push_back(test::takeLine(text));
  }
  return lines;
}

/// The values are in a file, and what counts as a secret must not be in what is shown of it. One
/// that stands there twice may be no secret in the other place.
class Secrets {
 public:
  Secrets(const std::string& file, const std::string& shown) : file_(file), shown_(shown) {}

  /// A text, and its words: it may be in several lines, or have other blanks in TinyXML.
  void checkText(const std::string& text) const {
    check(trimmed(text));
    checkWords(text);
  }
  /// Users of addresses, with their passwords.
  void checkUsers() const {
    for (std::size_t at = 0; (at = file_.find('@', at)) != std::string::npos; ++at) {
      std::string user = file_.substr(0, at);
      user.erase(0, user.find_last_of(" \t\r\n\v\f\"'=/<>;#-]@") + 1);
      check(user);
      std::replace(user.begin(), user.end(), ':', ' ');
      checkWords(user);
    }
    for (std::size_t at = 0; (at = shown_.find('@', at)) != std::string::npos; ++at) {
      const std::string before = shown_.substr(0, at);
      const std::size_t begin = before.find_last_of("\n\"'=<>]") + 1;
      const std::size_t user = before.size() - std::min<std::size_t>(before.size(), 3);
      const std::size_t colon = std::min(before.find(':', begin), user);
      require(before.substr(user) == "***" &&
                  (colon == user || before.substr(colon, user - colon) == "://"),
              "no user of an address is shown");
    }
  }

 private:
  void check(const std::string& value) const {
    const std::size_t at = file_.find(value);
    const bool isOnce = at != std::string::npos && file_.find(value, at + 1) == std::string::npos;
    require(value.find_first_not_of(kBlanks) == std::string::npos ||
                value.find('*') != std::string::npos || !isOnce ||
                shown_.find(value) == std::string::npos,
            "no secret is shown");
  }
  void checkWords(const std::string& text) const {
    std::istringstream words(text);
    for (std::string word; words >> word;) {
      check(word);
    }
  }

  const std::string& file_;
  const std::string& shown_;
};

/// "***" stands for parts of the line, and nothing else is changed.
void checkLine(std::string_view line, std::string_view shown) {
  constexpr std::string_view kBlank = "***";
  for (bool isFirst = true;; isFirst = false) {
    const std::size_t end = shown.find(kBlank);
    const std::string_view part = shown.substr(0, end);
    const bool isLast = end == std::string_view::npos;
    const std::size_t last = line.size() - std::min(line.size(), part.size());
    const std::size_t at = isFirst ? 0 : isLast ? last : line.find(part);
    require(at != std::string_view::npos && line.substr(at, part.size()) == part &&
                (!isLast || at == last),
            "what is no secret stays as it is");
    if (isLast) {
      return;
    }
    line.remove_prefix(at + part.size());
    shown.remove_prefix(end + kBlank.size());
  }
}

void checkLines(const std::string& file, const std::string& shown) {
  const std::vector<std::string> lines = linesOf(file);
  const std::vector<std::string> shownLines = linesOf(shown);
  require(lines.size() == shownLines.size() && std::count(file.begin(), file.end(), '\n') ==
                                                   std::count(shown.begin(), shown.end(), '\n'),
          "a line stays a line");
  for (std::size_t i = 0; i < lines.size(); ++i) {
    checkLine(lines[i], shownLines[i]);
  }
}

// INI files.

std::string withoutMark(const std::string& file) {
  return file.substr(file.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0);
}

/// By a reader of its own.
void checkValues(const std::string& file, const Secrets& secrets) {
  std::string section;
  for (const std::string& line : linesOf(file)) {
    std::string text = trimmed(line);
    if (text.compare(0, 1, "[") == 0) {
      text.erase(std::min(text.find('\0'), text.size()));
      const std::string name = text.substr(1, std::min(text.rfind(']'), text.size()) - 1);
      const bool isNone = name.find_first_not_of("/\\") == std::string::npos;
      section = text.find(']') == std::string::npos || isNone ? section : name;
      continue;
    }
    // A value that is commented out is one all the same.
    const std::size_t sign = text.find_first_not_of(";# \t");
    text.erase(0, sign);
    const std::size_t equals = text.find('=');
    const std::string key = trimmed(text.substr(0, equals));
    const bool isValue = equals != std::string::npos && isName(key);
    if (looksSecret(section) || looksSecret(text) || (sign == 0 && !isValue)) {
      secrets.checkText(isValue ? text.substr(equals + 1) : text);
    }
  }
}

void checkBlocks(const std::string& file, const std::string& shown) {
  const std::vector<std::string> lines = linesOf(file);
  const std::vector<std::string> shownLines = linesOf(shown);
  bool isInBlock = false;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    // Behind the others, 0 where there is none.
    const std::size_t begin = lines[i].rfind("-----BEGIN") + 1;
    const std::size_t end = lines[i].rfind("-----END") + 1;
    const std::string text = trimmed(shownLines[i]);
    require((!isInBlock && begin == 0) || text.empty() || text == "***",
            "no line of a block is shown");
    isInBlock = begin > end || (isInBlock && end == 0);
  }
}

/// Whether the line can be nothing but what it looks like, and has no secret.
bool isHarmless(const std::string& line) {
  const std::string text = trimmed(line);
  if (looksSecret(line) || line.find('@') != std::string::npos ||
      line.find("-----BEGIN") != std::string::npos || line.find("==") != std::string::npos) {
    return false;
  }
  // Base64 fills up with "=".
  if (const std::size_t at = line.find('=');
      at != std::string::npos && trimmed(line.substr(at + 1)) == "=") {
    return false;
  }
  if (text.empty() || text[0] == ';' || text[0] == '#') {
    return true;
  }
  const bool isSection = line.front() == '[' && line.find(']') == line.size() - 1;
  const std::size_t equals = line.find('=');
  return isSection || (equals != std::string::npos && isName(line.substr(0, equals)));
}

void checkIni(const std::string& file) {
  const std::string shown = ctl::withoutSecretsOfIni(file);
  checkLines(file, shown);
  const std::string text = withoutMark(file);
  const std::string shownText = withoutMark(shown);
  const Secrets secrets(text, shownText);
  checkValues(text, secrets);
  checkBlocks(text, shownText);
  secrets.checkUsers();
  const std::vector<std::string> lines = linesOf(file);
  require(shown == file || !std::all_of(lines.begin(), lines.end(), isHarmless),
          "a file without a secret is shown as it is");
}

// Device configurations.

/// As agents do it for TinyXML, which may read over the end by what it lacks of a character.
std::string withPlainLineEnds(std::string text) {
  for (std::size_t at = 0; (at = text.find('\r', at)) != std::string::npos;) {
    text.replace(at, text.compare(at, 2, "\r\n") == 0 ? 2 : 1, "\n");
  }
  return text + std::string(4, '\0');
}

/// Gives whether all in the element is secret, and checks its attributes.
bool checkAttributes(const TiXmlElement& element, bool isSecret, const Secrets& secrets) {
  // Where TinyXML stops, it has not seen all attributes.
  const bool isItem = element.Attribute("Value") != nullptr || element.GetDocument()->Error();
  const auto isItemsName = [&](const TiXmlAttribute& attribute) {
    return isItem && attribute.NameTStr() == "Key";
  };
  isSecret = isSecret || looksSecret(element.ValueStr());
  for (const auto* at = element.FirstAttribute(); at != nullptr; at = at->Next()) {
    isSecret =
        isSecret || looksSecret(at->ValueStr()) || (!isItemsName(*at) && looksSecret(at->Name()));
  }
  for (const auto* at = element.FirstAttribute(); isSecret && at != nullptr; at = at->Next()) {
    const bool isKept =
        isName(at->ValueStr()) && (isItemsName(*at) || at->NameTStr() == "DeviceDesc");
    if (!isKept) {
      secrets.checkText(at->ValueStr());
    }
  }
  for (const auto* at = element.FirstAttribute(); at != nullptr; at = at->Next()) {
    const std::string& value = at->ValueStr();
    if (value.find('@') != std::string::npos && value.find('\n') != std::string::npos) {
      secrets.checkText(value.substr(0, value.rfind('@')));
    }
  }
  return isSecret;
}

/// What TinyXML, which agents read them with, finds there.
void checkNodes(const TiXmlNode& in, bool isInSecret, const Secrets& secrets) {
  for (const TiXmlNode* node = in.FirstChild(); node != nullptr; node = node->NextSibling()) {
    const std::string& text = node->ValueStr();
    if (const TiXmlElement* const element = node->ToElement()) {
      checkNodes(*node, checkAttributes(*element, isInSecret, secrets), secrets);
    } else if (node->ToComment() != nullptr && !isInSecret &&
               trimmed(text).compare(0, 1, "<") == 0) {
      TiXmlDocument commentedOut;
      commentedOut.Parse(withPlainLineEnds(text).c_str());
      checkNodes(commentedOut, false, secrets);
    } else if (node->ToText() != nullptr ||
               (node->ToComment() != nullptr && (isInSecret || looksSecret(text)))) {
      secrets.checkText(text);
    }
  }
}

/// Whether there is nothing but elements and comments in it, none of which looks secret.
bool isPlain(const TiXmlNode& in) {
  for (const TiXmlNode* node = in.FirstChild(); node != nullptr; node = node->NextSibling()) {
    const TiXmlElement* const element = node->ToElement();
    const std::string& text = node->ValueStr();
    const bool isElement = element != nullptr && isName(text);
    const bool isComment =
        node->ToComment() != nullptr && text.find_first_of("<-") == std::string::npos;
    if ((!isElement && !isComment) || looksSecret(text) || !isPlain(*node)) {
      return false;
    }
    for (const auto* at = isElement ? element->FirstAttribute() : nullptr; at != nullptr;
         at = at->Next()) {
      const bool isItemsName = at->NameTStr() == "Key" && element->Attribute("Value") != nullptr;
      if (!isName(at->Name()) || looksSecret(at->ValueStr()) ||
          (!isItemsName && looksSecret(at->Name()))) {
        return false;
      }
    }
  }
  return true;
}

void checkXml(const std::string& file) {
  const std::string shown = ctl::withoutSecretsOfXml(file);
  const Secrets secrets(file, shown);
  checkLines(file, shown);
  secrets.checkUsers();
  if (file.find('\0') != std::string::npos) {
    return;  // where TinyXML ends
  }
  TiXmlDocument document;
  document.Parse(withPlainLineEnds(file).c_str());
  // Behind a "&" TinyXML shows what the file does not have as it is.
  if (file.find('&') == std::string::npos) {
    checkNodes(document, false, secrets);
  }
  TiXmlPrinter printer;
  document.Accept(&printer);
  const std::string& text = printer.Str();
  // TinyXML writes some characters by their names or numbers.
  if (!document.Error() && isPlain(document) && text.find_first_of("@&") == std::string::npos &&
      common::isUtf8(text)) {
    require(ctl::withoutSecretsOfXml(text) == text, "a file without a secret is shown as it is");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const bool isXml = size > 0 && *data % 2 != 0;
  const std::string file = size == 0 ? "" : test::textOf(data + 1, size - 1);
  isXml ? checkXml(file) : checkIni(file);
  return 0;
}
