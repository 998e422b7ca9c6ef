#include <qovpub/qov_exception.h>
#include <qovpub/qov_ini_operator.h>
#include <qovpub/qov_utility.h>

#include <cerrno>
#include <new>

#include "config/ini/file_replacement.h"
#include "config/ini/ini_text.h"
#include "frame/env/env_ini_import.h"

namespace {

constexpr int kSectionMapSize = 16;

bool nameOfFile(const char* fileName, std::string& name) {
  if (fileName != nullptr) {
    name = fileName;
    return true;
  }
  try {
    name = QOV_Utility::getProcessCfgFileName();
    return true;
  } catch (const CQOV_Exception&) {
    return false;
  }
}

std::string toStdString(const ACE_TString& text) {
  return {text.c_str(), text.length()};
}

}  // namespace

CQOV_Ini_Operator::CQOV_Ini_Operator() = default;

CQOV_Ini_Operator::~CQOV_Ini_Operator() = default;

int CQOV_Ini_Operator::open(const char* fileName) {
  std::string name;
  if (!nameOfFile(fileName, name)) {
    return -1;
  }
  // Before anything is changed: the heap opens once, and a second call must not make this operator
  // save its content into another file.
  if (heap_.open(kSectionMapSize) != 0) {
    return -1;
  }
  fileName_ = name;
  importer_.reset(new (std::nothrow) ACE_Ini_ImpExp(heap_));
  if (importer_ == nullptr) {
    errno = ENOMEM;
    return -1;
  }
  return qov::importIniFile(*importer_, fileName_);
}

bool CQOV_Ini_Operator::openSection(const char* section, ACE_Configuration_Section_Key& key) {
  return section != nullptr && importer_ != nullptr &&
         heap_.open_section(heap_.root_section(), section, 0, key) == 0;
}

int CQOV_Ini_Operator::getConfigItem(const char* section, const char* key, std::string& value) {
  ACE_Configuration_Section_Key sectionKey;
  ACE_TString text;
  if (key == nullptr || !openSection(section, sectionKey) ||
      heap_.get_string_value(sectionKey, key, text) != 0) {
    return -1;
  }
  value = toStdString(text);
  return 0;
}

int CQOV_Ini_Operator::enumerateSections(const char* section,
                                         std::list<std::pair<std::string, std::string>>& items) {
  ACE_Configuration_Section_Key sectionKey;
  if (!openSection(section, sectionKey)) {
    return -1;
  }
  ACE_TString name;
  ACE_Configuration::VALUETYPE type;
  for (int index = 0; heap_.enumerate_values(sectionKey, index, name, type) == 0; ++index) {
    ACE_TString text;
    heap_.get_string_value(sectionKey, name.c_str(), text);  // text stays empty if it fails
    items.emplace_back(toStdString(name), toStdString(text));
  }
  return 0;
}

int CQOV_Ini_Operator::setConfigItem_i(const char* section, const char* key,
                                       const std::string& value) {
  ACE_Configuration_Section_Key sectionKey;
  if (key == nullptr || !openSection(section, sectionKey) || !qov::fitsIniLine(key, value)) {
    return -1;
  }
  return heap_.set_string_value(sectionKey, key, value.c_str()) == 0 ? 0 : -1;
}

int CQOV_Ini_Operator::setConfigItem(const char* section, const char* key,
                                     const std::string& value) {
  return setConfigItem_i(section, key, value) == 0 ? save() : -1;
}

int CQOV_Ini_Operator::setConfigItem(const char* section,
                                     const std::list<std::pair<std::string, std::string>>& items) {
  for (const auto& item : items) {
    const bool keyIsText = item.first.find('\0') == std::string::npos;
    if (!keyIsText || setConfigItem_i(section, item.first.c_str(), item.second) != 0) {
      return -1;
    }
  }
  return save();
}

int CQOV_Ini_Operator::save() {
  if (importer_ == nullptr) {
    return -1;
  }
  return qov::replaceFile(fileName_, qov::toIniFile(heap_)) ? 0 : -1;
}
