#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <vector>

#include "tools/qovctl/each_line.h"
#include "tools/qovctl/secrets.h"

namespace qov::ctl {
namespace {

/// Whether there is a "&" other than of "&lt;" and its like: a character that stands there by its
/// number, or a "&" that TinyXML drops, hides a word.
bool hidesWord(std::string_view text) {
  constexpr std::array<std::string_view, 5> kNames{"&amp;", "&lt;", "&gt;", "&quot;", "&apos;"};
  for (std::size_t at = text.find('&'); at != std::string_view::npos; at = text.find('&', at + 1)) {
    if (std::none_of(kNames.begin(), kNames.end(),
                     [&](std::string_view name) { return text.substr(at, name.size()) == name; })) {
      return true;
    }
  }
  return false;
}

bool mayBeSecret(std::string_view text) {
  return looksSecret(text) || hidesWord(text);
}

/// The bytes that TinyXML takes for one character, in UTF-8, by the first of them.
std::size_t sizeOfCharacter(unsigned char first) {
  const bool isFirstOfMany = first >= 0xC2 && first <= 0xF4;
  return !isFirstOfMany ? 1 : first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
}

/// TinyXML reads on beyond the end of a text with "&#" without ";", or with a character that is
/// cut.
bool endsForTinyXml(std::string_view text) {
  const std::size_t number = text.rfind("&#");
  std::size_t at = 0;
  while (at < text.size()) {
    const std::size_t size = sizeOfCharacter(static_cast<unsigned char>(text[at]));
    if (text.substr(at + 1, size - 1).find('\r') != std::string_view::npos) {
      return false;  // agents make one byte of CR LF first
    }
    at += size;
  }
  return at == text.size() &&
         (number == std::string_view::npos || text.find(';', number) != std::string_view::npos);
}

struct Attribute {
  std::string_view name;
  std::string_view value;  ///< without quotes
};

/// An attribute "Key" beside a "Value" is an item's name.
bool isItem(const std::vector<Attribute>& attributes) {
  return std::any_of(attributes.begin(), attributes.end(),
                     [](const Attribute& attribute) { return attribute.name == "Value"; });
}

bool nameSecret(const std::vector<Attribute>& attributes) {
  const bool mayHaveKey = isItem(attributes);
  return std::any_of(attributes.begin(), attributes.end(), [&](const Attribute& attribute) {
    const bool isItemsName = mayHaveKey && attribute.name == "Key";
    return (!isItemsName && looksSecret(attribute.name)) || mayBeSecret(attribute.value);
  });
}

/// Goes through a text from one place to the next.
class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) {}

  std::size_t at() const { return at_; }
  bool isAtEnd() const { return at_ == text_.size(); }
  bool sees(std::string_view what) const { return text_.substr(at_, what.size()) == what; }
  std::string_view part(std::size_t begin, std::size_t end) const {
    return text_.substr(begin, end - begin);
  }

  bool take(std::string_view what) {
    const bool isThere = sees(what);
    at_ += isThere ? what.size() : 0;
    return isThere;
  }
  /// Everything up to `what`, or all that is left.
  std::string_view takeUntil(std::string_view what) { return takeTo(text_.find(what, at_)); }
  std::string_view takeUntilOneOf(const std::string& stops) {
    return takeTo(text_.find_first_of(stops, at_));
  }
  bool skipBlanks() { return !takeTo(text_.find_first_not_of(kBlanks, at_)).empty(); }

 private:
  std::string_view takeTo(std::size_t end) {
    const std::size_t begin = at_;
    at_ = std::min(end, text_.size());
    return part(begin, at_);
  }

  const std::string_view text_;
  std::size_t at_ = 0;
};

/// Empty if there is none. TinyXML makes something else of what begins with another character.
std::string_view takeName(Reader& from) {
  const std::string_view name = from.takeUntilOneOf(std::string(kBlanks) + "=<>/\"'?!&@");
  const bool isOne = !name.empty() && (name.front() == '_' ||
                                       std::isalpha(static_cast<unsigned char>(name.front())) != 0);
  return isOne ? name : std::string_view();
}

/// False if there is none that is well-formed. As TinyXML, takes values without quotes, too.
bool takeAttribute(Reader& from, Attribute& attribute) {
  attribute.name = takeName(from);
  from.skipBlanks();
  if (attribute.name.empty() || !from.take("=")) {
    return false;
  }
  from.skipBlanks();
  for (const char* const quote : {"\"", "'"}) {
    if (from.take(quote)) {
      attribute.value = from.takeUntil(quote);
      return from.take(quote) && endsForTinyXml(attribute.value);
    }
  }
  attribute.value = from.takeUntilOneOf(std::string(kBlanks) + "/><\"'");
  return !attribute.value.empty();
}

/// Up to "/>" or ">". False if something there is not well-formed.
bool takeAttributes(Reader& from, std::vector<Attribute>& attributes) {
  while (from.skipBlanks()) {
    if (from.sees("/>") || from.sees(">")) {
      return true;
    }
    if (!takeAttribute(from, attributes.emplace_back())) {
      return false;
    }
  }
  return from.sees("/>") || from.sees(">");
}

/// Whether there are attributes behind the name whose values are words, and nothing else: TinyXML
/// takes "version=" within another value for the version, and ends at a ">".
bool hasWordsAlone(std::string_view declaration) {
  Reader in(declaration);
  takeName(in);
  Attribute attribute;
  while (in.skipBlanks() && !in.isAtEnd()) {
    if (!takeAttribute(in, attribute) ||
        attribute.value.find_first_of(std::string(kBlanks) + ">@") != std::string_view::npos) {
      return false;
    }
  }
  return in.isAtEnd();
}

/// Goes through a file.
class XmlText {
 public:
  explicit XmlText(std::string_view text) : in_(text), size_(text.size()) {}

  std::string read() {
    while (!in_.isAtEnd()) {
      const std::string_view text = in_.takeUntil("<");
      out_ += blanked(text);
      const std::size_t begin = in_.at();
      if (!in_.isAtEnd() && (!endsForTinyXml(text) || !takeMarkup())) {
        return out_ + blanked(in_.part(begin, size_));
      }
    }
    return out_;
  }

 private:
  struct Open {
    std::string_view name;
    bool isSecret;
  };

  /// False, with nothing added, if it is not well-formed.
  bool takeMarkup() {
    const std::size_t begin = in_.at();
    if (in_.take("<!--")) {
      return takeComment();
    }
    in_.take("<");
    if (in_.take("?")) {
      return takeDeclaration(begin);
    }
    return in_.take("/") ? takeEnd(begin) : takeBegin(begin);
  }

  bool takeComment() {
    const std::string_view text = in_.takeUntil("-->");
    if (!in_.take("-->")) {
      return false;
    }
    out_ += "<!--" + comment(text) + "-->";
    return true;
  }

  std::string comment(std::string_view text) const {
    if (isInSecret()) {
      return blanked(text);
    }
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first != std::string_view::npos && text[first] == '<') {
      return withoutSecretsOfXml(text);
    }
    const bool hasNumbers = text.find("&#") != std::string_view::npos;
    return hasNumbers || looksSecret(text) ? blanked(text) : eachLine(text, withoutUser);
  }

  bool isInSecret() const { return !open_.empty() && open_.back().isSecret; }

  bool takeDeclaration(std::size_t begin) {
    const std::string_view text = in_.takeUntil("?>");
    if (isInSecret() || mayBeSecret(text) || !hasWordsAlone(text) || !in_.take("?>")) {
      return false;
    }
    out_ += in_.part(begin, in_.at());
    return true;
  }

  bool takeEnd(std::size_t begin) {
    const std::string_view name = takeName(in_);
    in_.skipBlanks();
    if (open_.empty() || open_.back().name != name || !in_.take(">")) {
      return false;
    }
    open_.pop_back();
    out_ += in_.part(begin, in_.at());
    return true;
  }

  bool takeBegin(std::size_t begin) {
    const std::string_view name = takeName(in_);
    std::vector<Attribute> attributes;
    if (name.empty() || !takeAttributes(in_, attributes)) {
      return false;
    }
    const bool isSecret = isInSecret() || looksSecret(name) || nameSecret(attributes);
    if (!in_.take("/>")) {
      in_.take(">");
      open_.push_back({name, isSecret});
    }
    add(begin, attributes, isSecret);
    return true;
  }

  /// The tag that began there and ends here.
  void add(std::size_t begin, const std::vector<Attribute>& attributes, bool isSecret) {
    const std::string_view tag = in_.part(begin, in_.at());
    std::size_t done = 0;
    for (const auto& [name, value] : attributes) {
      const auto valueAt = static_cast<std::size_t>(value.data() - tag.data());
      out_ += tag.substr(done, valueAt - done);
      const bool isKept =
          !isSecret ||
          (((name == "Key" && isItem(attributes)) || name == "DeviceDesc") && isName(value));
      out_ += isKept ? withoutUser(value) : blanked(value);
      done = valueAt + value.size();
    }
    out_ += tag.substr(done);
  }

  Reader in_;
  const std::size_t size_;
  std::string out_;
  std::vector<Open> open_;
};

}  // namespace

std::string withoutSecretsOfXml(std::string_view text) {
  return XmlText(text).read();
}

}  // namespace qov::ctl
