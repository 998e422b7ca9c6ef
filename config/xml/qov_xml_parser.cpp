#include <qovpub/qov_xml.h>

#include <ace/Guard_T.h>
#include <qovpub/qov_common_debugkit.h>
#include <tinyxml.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <string_view>
#include <thread>

#include "config/xml/device_faults.h"
#include "config/xml/qov_xml_file.h"
#include "diag/log_ids.h"

namespace {

constexpr int kAttempts = 3;
constexpr std::chrono::seconds kSleepAfterAttempt{10};

/// Null (errno ENOMEM) without memory.
std::unique_ptr<CIType> itemFrom(const TiXmlElement& element) try {
  auto item = std::make_unique<CIType>(CIType{qov::kDefaultText, qov::kDefaultText, {}});
  for (const TiXmlAttribute* attribute = element.FirstAttribute(); attribute != nullptr;
       attribute = attribute->Next()) {
    const std::string_view name = attribute->Name();
    if (name == "Key") {
      item->key = attribute->Value();
    } else if (name == "Value") {
      item->value = attribute->Value();
    }
  }
  return item;
} catch (const std::bad_alloc&) {
  errno = ENOMEM;
  return nullptr;
}

bool parseDevices(CQOVXmlParser& parser, TiXmlElement& deviceConfig) {
  for (TiXmlElement* device = deviceConfig.FirstChildElement(); device != nullptr;
       device = device->NextSiblingElement()) {
    const char* const deviceDesc = device->Attribute("DeviceDesc");
    TiXmlElement* const firstItem = device->FirstChildElement();
    if (deviceDesc != nullptr && firstItem != nullptr &&
        !parser.parseConfigItem(deviceDesc, firstItem)) {
      return false;
    }
  }
  return true;
}

/// False when there is such an item already. Throws std::bad_alloc with nothing changed.
bool store(CQOVXmlParser::DeviceMap& devices, const std::string& deviceDesc, CIType& item) {
  const auto known = devices.find(deviceDesc);
  if (known != devices.end()) {
    return known->second->emplace(item.key, &item).second;
  }
  auto items = std::make_unique<CQOVXmlParser::ItemMap>();
  items->emplace(item.key, &item);
  devices.emplace(deviceDesc, items.get());
  static_cast<void>(items.release());
  return true;
}

}  // namespace

enum class CQOVXmlParser::Added {
  kStored,  ///< the item is the parser's
  kBefore,  ///< the device has an item of that key already
  kNot,
};

CQOVXmlParser::CQOVXmlParser(const std::string& fileName) : fileName_(fileName) {
  const CQOVDebugKitGuard guard(0, "CQOVXmlParser::CQOVXmlParser(const std::string&)");
  std::unique_ptr<DeviceMap> devices(new (std::nothrow) DeviceMap);
  std::unique_ptr<DeviceMap> second(new (std::nothrow) DeviceMap);
  if (devices != nullptr && second != nullptr) {
    config_.reset(new (std::nothrow) DeviceMaps(std::move(devices), std::move(second)));
  }
  if (config_ == nullptr) {
    errno = ENOMEM;
  }
}

CQOVXmlParser::~CQOVXmlParser() {
  if (config_ == nullptr) {
    return;
  }
  for (const auto& device : *config_->first) {
    for (const auto& item : *device.second) {
      delete item.second;
    }
    delete device.second;
  }
}

const CQOVXmlParser::DeviceMap* CQOVXmlParser::devices() const {
  return config_ != nullptr ? config_->first.get() : nullptr;
}

bool CQOVXmlParser::parse() {
  CQOVDebugKitGuard guard(0, "bool CQOVXmlParser::parse()");
  if (fileName_.empty()) {
    return false;
  }
  TiXmlDocument document;
  if (!openXmlDoc(document)) {
    // Not std::exit: static objects would be destroyed under the threads of the modules. Log lines
    // are not lost by that, each was written through when it was made.
    ::_exit(EXIT_FAILURE);
  }
  TiXmlElement* const root = document.RootElement();
  if (const std::string why = qov::whyNoRoot(root); !why.empty()) {
    throw std::runtime_error(why);
  }
  TiXmlElement* const deviceConfig = root->FirstChildElement();
  if (deviceConfig == nullptr) {
    guard.error(qov::log_id::kXmlNoDevices, __FUNCTION__, __LINE__, "%s", qov::kNoDeviceConfig);
    return false;
  }
  return parseDevices(*this, *deviceConfig);
}

bool CQOVXmlParser::openXmlDoc(TiXmlDocument& document) {
  CQOVDebugKitGuard guard(0, "bool CQOVXmlParser::openXmlDoc(TiXmlDocument&)");
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    std::string reason;
    if (qov::loadXmlFile(fileName_, document, reason)) {
      return true;
    }
    guard.warn(qov::log_id::kXmlRefused, __FUNCTION__, __LINE__, "Refused %s: %s",
               fileName_.c_str(), reason.c_str());
    guard.error(qov::log_id::kXmlNotOpened, __FUNCTION__, __LINE__, "Failed to open %s.",
                fileName_.c_str());
    std::this_thread::sleep_for(kSleepAfterAttempt);
  }
  guard.error(qov::log_id::kXmlGivenUp, __FUNCTION__, __LINE__, "Failed to open %s, try 3 times.",
              fileName_.c_str());
  return false;
}

bool CQOVXmlParser::parseConfigItem(const char* deviceDesc, TiXmlElement* firstItem) {
  CQOVDebugKitGuard guard(0, "bool CQOVXmlParser::parseConfigItem(const char*, TiXmlElement*)");
  if (!addItems(deviceDesc, firstItem)) {
    guard.error(qov::log_id::kXmlNoMemory, __FUNCTION__, __LINE__,
                "Failed to parse config item, allocate memory failed.");
    return false;
  }
  return true;
}

bool CQOVXmlParser::addItems(const char* deviceDesc, const TiXmlElement* firstItem) try {
  const std::string description = deviceDesc != nullptr ? deviceDesc : "";
  for (const TiXmlElement* element = firstItem; element != nullptr;
       element = element->NextSiblingElement()) {
    std::unique_ptr<CIType> item = itemFrom(*element);
    const Added added = add(description, item.get());
    if (added == Added::kNot) {
      return false;
    }
    if (added == Added::kStored) {
      static_cast<void>(item.release());
    }
  }
  return true;
} catch (const std::bad_alloc&) {
  errno = ENOMEM;
  return false;
}

bool CQOVXmlParser::addDeviceConfig(std::string& deviceDesc, CIType* item) {
  return add(deviceDesc, item) != Added::kNot;
}

CQOVXmlParser::Added CQOVXmlParser::add(const std::string& deviceDesc, CIType* item) {
  CQOVDebugKitGuard guard(0, "bool CQOVXmlParser::addDeviceConfig(std::string&, CIType*)");
  const ACE_Guard<ACE_Thread_Mutex> lock(lock_);
  if (config_ == nullptr) {
    guard.warn(qov::log_id::kXmlNoMap, __FUNCTION__, __LINE__,
               "Invalid parameter, pConfig_ is null!");
    return Added::kNot;
  }
  if (item == nullptr) {
    guard.error(qov::log_id::kXmlNoItem, __FUNCTION__, __LINE__,
                "Invalid parameter, pDevCIT is null!");
    return Added::kNot;
  }
  try {
    if (store(*config_->first, deviceDesc, *item)) {
      return Added::kStored;
    }
    guard.warn(qov::log_id::kXmlItemTwice, __FUNCTION__, __LINE__, "%s\n",
               qov::itemTwiceText(deviceDesc, item->key).c_str());
    return Added::kBefore;
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return Added::kNot;
  }
}
