#include "config/xml/qov_xml_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <tinyxml.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>

#include "config/xml/qov_xml_depth.h"

namespace qov {
namespace {

class OpenFile {
 public:
  /// Does not wait for the other end of a pipe.
  explicit OpenFile(const std::string& name)
      : handle_(::open(name.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)) {}
  ~OpenFile() {
    if (handle_ >= 0) {
      ::close(handle_);
    }
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  int handle() const { return handle_; }

 private:
  const int handle_;
};

/// Reads until `text` is full; errno says why when it is not (0: the file has become shorter).
bool readInto(std::string& text, int handle) {
  std::size_t filled = 0;
  while (filled < text.size()) {
    errno = 0;
    const ssize_t count = ::read(handle, &text[filled], text.size() - filled);
    if (count > 0) {
      filled += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      return false;
    }
  }
  return true;
}

/// An empty text, or why the file could not be read into `text`.
std::string readFile(const std::string& name, std::string& text) {
  const OpenFile file(name);
  struct stat status {};
  if (file.handle() < 0 || ::fstat(file.handle(), &status) != 0) {
    return std::strerror(errno);
  }
  if (!S_ISREG(status.st_mode)) {
    return "not a regular file";
  }
  if (static_cast<std::size_t>(status.st_size) > kMostBytesOfXml) {
    return "larger than " + std::to_string(kMostBytesOfXml) + " bytes";
  }
  const auto size = static_cast<std::size_t>(status.st_size);
  text.reserve(size + kXmlPadding);
  text.resize(size);
  if (!readInto(text, file.handle())) {
    return errno != 0 ? std::strerror(errno) : "changed while it was read";
  }
  return {};
}

/// TinyXML ends there, too, unless a broken character has it step over the zero byte: then it would
/// read on.
void endAtZeroByte(std::string& text) {
  text.resize(std::min(text.find('\0'), text.size()));
}

/// CR LF and CR become LF, as in a file that TinyXML reads by itself.
void normaliseLineEnds(std::string& text) {
  std::size_t to = 0;
  for (std::size_t from = 0; from < text.size(); ++from) {
    const bool isReturn = text[from] == '\r';
    if (isReturn && from + 1 < text.size() && text[from + 1] == '\n') {
      ++from;
    }
    text[to++] = isReturn ? '\n' : text[from];
  }
  text.resize(to);
}

/// TinyXML does not know the place of every error.
std::string errorOf(const TiXmlDocument& document) {
  std::string place;
  if (document.ErrorRow() > 0) {
    place = "line " + std::to_string(document.ErrorRow()) + ", column " +
            std::to_string(document.ErrorCol()) + ": ";
  }
  return place + document.ErrorDesc();
}

/// An empty text, or why it could not be loaded.
std::string load(const std::string& fileName, TiXmlDocument& document) {
  std::string text;
  std::string unread = readFile(fileName, text);
  if (!unread.empty()) {
    return unread;
  }
  endAtZeroByte(text);
  normaliseLineEnds(text);
  text.append(kXmlPadding, '\0');
  const XmlExtent extent = extentOfXml(text);
  if (extent.depth > kDeepestXmlElement) {
    return "elements nest deeper than " + std::to_string(kDeepestXmlElement);
  }
  if (extent.attributes > kMostXmlAttributes) {
    return "an element has more than " + std::to_string(kMostXmlAttributes) + " attributes";
  }
  document.Clear();
  document.SetValue(fileName);
  document.Parse(text.c_str());
  return document.Error() ? errorOf(document) : std::string();
}

}  // namespace

bool loadXmlFile(const std::string& fileName, TiXmlDocument& document, std::string& reason) {
  try {
    reason = load(fileName, document);
  } catch (const std::bad_alloc&) {
    reason = "out of memory";  // short enough to need none
  }
  return reason.empty();
}

}  // namespace qov
