#ifndef QOV_TESTS_CONFIG_DEVICE_XML_H
#define QOV_TESTS_CONFIG_DEVICE_XML_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_utility.h>
#include <qovpub/qov_xml.h>

#include <chrono>
#include <functional>
#include <list>
#include <string>
#include <utility>
#include <vector>

#include "tests/module/process_log.h"
#include "tests/support/instead_of_sleeping.h"
#include "tests/support/this_process.h"

namespace qov::test {

/// One node of the parser's map with these keys and values, as the library has it.
template <class Key, class Value>
struct MapNode {
  int colour;
  void* links[3];
  std::pair<const Key, Value> entry;
};

using ItemNode = MapNode<std::string, CIType*>;

/// The device XML of this process, what is logged about it, and no time for sleeping.
class DeviceXmlTest : public ::testing::Test {
 protected:
  using Items = std::vector<std::pair<std::string, std::string>>;

  DeviceXmlTest() {
    ::testing::GTEST_FLAG(death_test_style) = "threadsafe";
    std::filesystem::remove_all(file());
  }
  ~DeviceXmlTest() override { CQOVXmlConfig::close(); }

  static std::string file() {
    std::string name;
    CProcInfo::getProcName(name);
    return (thisProcess().confDirectory() / (name + ".xml")).string();
  }

  static void write(const std::string& content) { writeFile(file(), content); }

  /// Writes a whole file with these elements as the devices.
  static void writeDevices(const std::string& devices) {
    write("<AgentConfig><DeviceConfig>" + devices + "</DeviceConfig></AgentConfig>");
  }

  static CQOVXmlConfig& config() { return *CQOVXmlConfig::instance(); }

  /// Makes all that a process makes only once: what is refused memory from now on is the
  /// configuration's own.
  void readAndForget() {
    config();
    CQOVXmlConfig::close();
    log.clear();
  }

  /// The value found; what an exception says when there is none.
  static std::string find(const std::string& device, const std::string& key) {
    std::string value = "unchanged";
    try {
      std::string& result = config().getDeviceItem(device, key, value);
      EXPECT_EQ(&result, &value);
    } catch (const CQOV_Exception& exception) {
      EXPECT_EQ(value, "unchanged");
      return exception.what();
    }
    return value;
  }

  static Items list(const std::string& device) {
    std::list<CIType> items;
    config().getDeviceItem(device, items);
    Items result;
    for (const CIType& item : items) {
      EXPECT_EQ(item.extra, "");
      result.emplace_back(item.key, item.value);
    }
    return result;
  }

  std::vector<std::string> messages(const char* tag) const { return log.messages(tag); }

  static std::vector<std::string> tracesOf(const std::function<void()>& operation) {
    const ProcessLog traced;
    operation();
    return traced.messages("TRACE");
  }

  ProcessLog log{ProcessLog::kAllLevels & ~static_cast<u_long>(LM_TRACE)};
  std::vector<std::chrono::nanoseconds> sleeps;
  /// Called at each sleep.
  std::function<void()> meanwhile = [] {};

 private:
  const InsteadOfSleeping awake_{[this](std::chrono::nanoseconds time) {
    sleeps.push_back(time);
    meanwhile();
    return std::chrono::nanoseconds(0);
  }};
};

}  // namespace qov::test

#endif
