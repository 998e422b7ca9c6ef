#include <qovpub/qov_xml.h>

#include <ace/Guard_T.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_utility.h>

#include <cerrno>
#include <exception>
#include <new>

#include "diag/log_ids.h"

namespace {

using Guard = ACE_Guard<ACE_Thread_Mutex>;
using DeviceMap = CQOVXmlParser::DeviceMap;
using ItemMap = CQOVXmlParser::ItemMap;

constexpr const char* kDefaultDevice = "default";

std::string pathOfFile() {
  return QOV_Utility::getProcessCfgPath() + QOV_Utility::getProcessName() + ".xml";
}

/// Null for a device that is not there.
const ItemMap* itemsOf(const DeviceMap& devices, const std::string& deviceDesc) {
  const auto device = devices.find(deviceDesc);
  return device != devices.end() ? device->second : nullptr;
}

/// Null for an item that is not there; `items` may be null.
const CIType* itemOf(const ItemMap* items, const std::string& key) {
  if (items == nullptr) {
    return nullptr;
  }
  const auto item = items->find(key);
  return item != items->end() ? item->second : nullptr;
}

const CIType& defaultItem(const DeviceMap& devices, const std::string& key) {
  const ItemMap* const items = itemsOf(devices, kDefaultDevice);
  if (items == nullptr) {
    // Says key, means the device; kept as it stands.
    throw CQOV_Exception("can't find config item! key=default");
  }
  const CIType* const item = itemOf(items, key);
  if (item == nullptr) {
    throw CQOV_Exception("can't find config item! key=" + key);
  }
  return *item;
}

}  // namespace

std::atomic<CQOVXmlConfig*> CQOVXmlConfig::pInstance_{nullptr};
ACE_Thread_Mutex CQOVXmlConfig::oSingLetonMutex_;

CQOVXmlConfig::CQOVXmlConfig() {
  CQOVDebugKitGuard guard(0, "CQOVXmlConfig::CQOVXmlConfig()");
  try {
    // Kept before it parses: what it has stored when it fails can still be looked up.
    parser_ = std::make_unique<CQOVXmlParser>(pathOfFile());
    parser_->parse();
  } catch (const std::exception& exception) {
    guard.error(qov::log_id::kXmlNotParsed, __FUNCTION__, __LINE__,
                "Failed to parse, exception is %s.", exception.what());
  }
}

CQOVXmlConfig::~CQOVXmlConfig() = default;

CQOVXmlConfig* CQOVXmlConfig::instance() {
  CQOVXmlConfig* config = pInstance_.load(std::memory_order_acquire);
  if (config == nullptr) {
    const Guard lock(oSingLetonMutex_);
    config = pInstance_.load(std::memory_order_relaxed);
    if (config == nullptr) {
      config = new (std::nothrow) CQOVXmlConfig;
      if (config == nullptr) {
        errno = ENOMEM;
      }
      pInstance_.store(config, std::memory_order_release);
    }
  }
  return config;
}

void CQOVXmlConfig::close() {
  const Guard lock(oSingLetonMutex_);
  const std::unique_ptr<CQOVXmlConfig> closed(
      pInstance_.exchange(nullptr, std::memory_order_acq_rel));
}

const DeviceMap* CQOVXmlConfig::devices() const {
  return parser_ != nullptr ? parser_->devices() : nullptr;
}

std::string& CQOVXmlConfig::getDeviceItem(const std::string& deviceDesc, const std::string& key,
                                          std::string& value) {
  const CQOVDebugKitGuard guard(0,
                                "std::string& CQOVXmlConfig::getDeviceItem(const std::string&, "
                                "const std::string&, std::string&)");
  const DeviceMap* const all = devices();
  if (all == nullptr) {
    throw CQOV_Exception("can't find Device config!");
  }
  const CIType* const own = itemOf(itemsOf(*all, deviceDesc), key);
  value = own != nullptr ? own->value : defaultItem(*all, key).value;
  return value;
}

void CQOVXmlConfig::getDeviceItem(const std::string& deviceDesc, std::list<CIType>& items) {
  CQOVDebugKitGuard guard(
      0, "void CQOVXmlConfig::getDeviceItem(const std::string&, std::list<CIType>&)");
  guard.debug(qov::log_id::kXmlListed, __FUNCTION__, __LINE__, "Parse %s from %s.",
              deviceDesc.c_str(), parser_ != nullptr ? parser_->fileName().c_str() : "");
  const DeviceMap* const all = devices();
  if (all == nullptr) {
    guard.warn(qov::log_id::kXmlNothingToList, __FUNCTION__, __LINE__,
               "Invalid parameter, pConfig_ is null!");
    return;
  }
  if (const ItemMap* const found = itemsOf(*all, deviceDesc)) {
    for (const auto& item : *found) {
      items.push_back(*item.second);
    }
  }
}
