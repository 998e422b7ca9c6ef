#include "config/xml/device_faults.h"

#include <tinyxml.h>

#include <algorithm>
#include <initializer_list>
#include <map>
#include <set>
#include <string_view>

#include "config/xml/qov_xml_file.h"

namespace qov {
namespace {

/// Walks through a document as the parser does.
class DeviceWalk {
 public:
  std::vector<DeviceFault> faultsOf(const TiXmlElement* root);

 private:
  void look(const TiXmlElement& device);
  void lookAtItem(const std::string& deviceDesc, const TiXmlElement& item);
  /// Attributes of `element` whose names are not among `known`.
  void lookForOthers(const TiXmlElement& element, std::initializer_list<std::string_view> known);
  void ignore(const TiXmlBase& place, const std::string& cause) {
    faults_.push_back({static_cast<unsigned>(place.Row()), cause, true});
  }

  std::map<std::string, std::set<std::string>> keys_;  // by device
  std::vector<DeviceFault> faults_;
};

std::vector<DeviceFault> DeviceWalk::faultsOf(const TiXmlElement* root) {
  const unsigned line = root != nullptr ? static_cast<unsigned>(root->Row()) : 0;
  if (const std::string why = whyNoRoot(root); root == nullptr || !why.empty()) {
    return {{line, why, false}};
  }
  const TiXmlElement* const devices = root->FirstChildElement();
  if (devices == nullptr) {
    return {{line, kNoDeviceConfig, false}};
  }
  for (const TiXmlElement* device = devices->FirstChildElement(); device != nullptr;
       device = device->NextSiblingElement()) {
    look(*device);
  }
  for (const TiXmlElement* more = devices->NextSiblingElement(); more != nullptr;
       more = more->NextSiblingElement()) {
    ignore(*more, "devices stand in the first element of the root; this one is ignored");
  }
  return faults_;
}

void DeviceWalk::look(const TiXmlElement& device) {
  const char* const description = device.Attribute("DeviceDesc");
  const TiXmlElement* const first = device.FirstChildElement();
  if (description == nullptr || first == nullptr) {
    ignore(device, std::string("a device without ") +
                       (description == nullptr ? "DeviceDesc" : "an item") + " is ignored");
    return;
  }
  lookForOthers(device, {"DeviceDesc"});
  for (const TiXmlElement* item = first; item != nullptr; item = item->NextSiblingElement()) {
    lookAtItem(description, *item);
  }
}

void DeviceWalk::lookAtItem(const std::string& deviceDesc, const TiXmlElement& item) {
  const char* const given = item.Attribute("Key");
  const std::string key = given != nullptr ? given : kDefaultText;
  if (!keys_[deviceDesc].insert(key).second) {
    ignore(item, itemTwiceText(deviceDesc, key));
  } else if (given == nullptr) {
    ignore(item, "an item without Key gets the key \"" + key + "\"");
  }
  lookForOthers(item, {"Key", "Value"});
  if (const TiXmlElement* const inner = item.FirstChildElement()) {
    ignore(*inner, "what stands in an item is ignored");
  }
}

void DeviceWalk::lookForOthers(const TiXmlElement& element,
                               std::initializer_list<std::string_view> known) {
  for (const TiXmlAttribute* attribute = element.FirstAttribute(); attribute != nullptr;
       attribute = attribute->Next()) {
    if (std::find(known.begin(), known.end(), attribute->Name()) == known.end()) {
      ignore(*attribute, std::string("unknown attribute ") + attribute->Name() + " is ignored");
    }
  }
}

}  // namespace

std::string whyNoRoot(const TiXmlElement* root) {
  if (root == nullptr) {
    return "parse root element failed! ";
  }
  return root->ValueStr() != "AgentConfig" ? "unable to find qov node: " + root->ValueStr() : "";
}

std::string itemTwiceText(const std::string& deviceDesc, const std::string& key) {
  return "ConfigItem is already exist! DeviceDest : " + deviceDesc + ", and ConfigItem : " + key;
}

std::vector<DeviceFault> faultsOfDevices(const std::string& fileName) {
  TiXmlDocument document;
  std::string reason;
  if (!loadXmlFile(fileName, document, reason)) {
    if (document.Error() && document.ErrorRow() > 0) {
      const std::string column = std::to_string(document.ErrorCol());
      return {{static_cast<unsigned>(document.ErrorRow()),
               "column " + column + ": " + document.ErrorDesc(), false}};
    }
    return {{0, reason, false}};
  }
  return DeviceWalk().faultsOf(document.RootElement());
}

}  // namespace qov
