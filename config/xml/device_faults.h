#ifndef QOV_CONFIG_XML_DEVICE_FAULTS_H
#define QOV_CONFIG_XML_DEVICE_FAULTS_H

#include <string>
#include <vector>

class TiXmlElement;

namespace qov {

/// Why `root` is no device configuration's; empty when it is one.
std::string whyNoRoot(const TiXmlElement* root);

constexpr const char* kNoDeviceConfig = "no DeviceConfig found";

/// An item's key and value where it gives none.
constexpr const char* kDefaultText = "default";

/// Of an item whose key the device has already.
std::string itemTwiceText(const std::string& deviceDesc, const std::string& key);

/// What is wrong with a device configuration, or in it and ignored.
struct DeviceFault {
  unsigned line;  ///< from 1; 0 for none
  std::string cause;
  bool isIgnored;  ///< all else is read as it stands
};

/// What CQOVXmlParser::parse() would meet in `fileName`, in the file's order, and what it passes
/// over in silence.
std::vector<DeviceFault> faultsOfDevices(const std::string& fileName);

}  // namespace qov

#endif
