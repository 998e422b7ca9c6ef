// The input is the content of a device configuration.
#include <qovpub/qov_xml.h>
#include <sys/mman.h>
#include <tinyxml.h>
#include <unistd.h>

#include <map>
#include <stdexcept>
#include <string_view>

#include "config/xml/device_faults.h"
#include "config/xml/qov_xml_depth.h"
#include "config/xml/qov_xml_file.h"
#include "tests/support/fuzz.h"

using namespace qov;
using test::require;

namespace {

/// A file in memory, for what reads files by name.
class MemoryFile {
 public:
  MemoryFile() : descriptor_(::memfd_create("input", MFD_CLOEXEC)) {}
  ~MemoryFile() { ::close(descriptor_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  void write(std::string_view content) const {
    const auto size = static_cast<ssize_t>(content.size());
    require(::pwrite(descriptor_, content.data(), content.size(), 0) == size &&
                ::ftruncate(descriptor_, size) == 0,
            "a file in memory takes the input");
  }
  std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
  const int descriptor_;
};

using Devices = std::map<std::string, std::map<std::string, std::string>>;

Devices devicesOf(const CQOVXmlParser& parser) {
  Devices devices;
  for (const auto& [description, items] : *parser.devices()) {
    for (const auto& [key, item] : *items) {
      require(item->key == key && item->extra.empty(), "an item has its key and no more");
      devices[description][key] = item->value;
    }
  }
  return devices;
}

/// The same, by a reader of its own: the first item of a key counts.
Devices devicesIn(TiXmlDocument& document) {
  Devices devices;
  for (TiXmlElement* device = TiXmlHandle(&document)
                                  .FirstChildElement()
                                  .FirstChildElement()
                                  .FirstChildElement()
                                  .ToElement();
       device != nullptr; device = device->NextSiblingElement()) {
    const char* const description = device->Attribute("DeviceDesc");
    for (TiXmlElement* item = device->FirstChildElement();
         description != nullptr && item != nullptr; item = item->NextSiblingElement()) {
      const char* const key = item->Attribute("Key");
      const char* const value = item->Attribute("Value");
      devices[description].emplace(key != nullptr ? key : "default",
                                   value != nullptr ? value : "default");
    }
  }
  return devices;
}

/// How deep elements nest below `node`.
int depthBelow(const TiXmlNode& node) {
  int deepest = 0;
  for (const TiXmlNode* child = node.FirstChild(); child != nullptr; child = child->NextSibling()) {
    deepest = std::max(deepest, depthBelow(*child) + (child->ToElement() != nullptr ? 1 : 0));
  }
  return deepest;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  test::silence();
  const std::string text = test::textOf(data, size);
  static const MemoryFile file;
  file.write(text);
  TiXmlDocument document;
  std::string reason;
  const bool isXml = loadXmlFile(file.path(), document, reason);
  require(depthBelow(document) <= kDeepestXmlElement, "no element is deeper than the limit");
  bool isRefused = false;
  for (const DeviceFault& fault : faultsOfDevices(file.path())) {
    isRefused = isRefused || !fault.isIgnored;
  }
  if (!isXml) {
    require(isRefused, "what cannot be loaded has a fault");
    return 0;
  }
  CQOVXmlParser parser(file.path());
  bool isParsed = false;
  try {
    isParsed = parser.parse();
  } catch (const std::runtime_error&) {
    // No root, or another one.
  }
  require(isParsed != isRefused, "the check refuses what the parser does");
  require(!isParsed || devicesOf(parser) == devicesIn(document), "every item is read");
  return 0;
}
