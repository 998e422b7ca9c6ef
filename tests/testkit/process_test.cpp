#include <gtest/gtest.h>
#include <qovpub/qov_common_debugkit.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_ini_operator.h>
#include <qovpub/qov_testkit.h>
#include <qovpub/qov_utility.h>
#include <qovpub/qov_xml.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace {

namespace fs = std::filesystem;

std::string setting(const char* section, const char* key) {
  CQOV_Ini_Operator settings;
  std::string value = "nothing";
  EXPECT_EQ(settings.open(nullptr), 0);
  settings.getConfigItem(section, key, value);
  return value;
}

std::string item(const std::string& device, const std::string& key) {
  std::string value;
  return CQOVXmlConfig::instance()->getDeviceItem(device, key, value);
}

TEST(TestProcess, HasANumberAndAFolderOfItsOwn) {
  const QOVTestProcess process;

  EXPECT_EQ(QOV_Utility::getProcPID(), QOVTestProcess::kId);
  EXPECT_EQ(QOV_Utility::getQOVRootEnv(), process.folder());
  EXPECT_TRUE(fs::exists(QOV_Utility::getProcessLogPath()));
}

TEST(TestProcess, ShowsWhatIsConfigured) {
  QOVTestProcess process;
  process.configure("COLLECTOR", "PeriodMs", "500");
  process.configure("COLLECTOR", "Name", "a \"b\" = c");
  process.configure("MMT", "MMT_ADDR", "127.0.0.1:1");
  process.configure("COLLECTOR", "PeriodMs", "700");

  EXPECT_EQ(setting("COLLECTOR", "PeriodMs"), "700");
  EXPECT_EQ(setting("COLLECTOR", "Name"), "a \"b\" = c");
  EXPECT_EQ(setting("MMT", "MMT_ADDR"), "127.0.0.1:1");
}

TEST(TestProcess, RefusesWhatTheConfigurationCannotHold) {
  QOVTestProcess process;

  EXPECT_THROW(process.configure("COLLECTOR", "Name", "two\nlines"), std::invalid_argument);
  EXPECT_NO_THROW(process.configure("COLLECTOR", "Name", "one line"));
}

TEST(TestProcess, ShowsTheDevicesThatAreConfigured) {
  QOVTestProcess process;
  process.configureDevice("router", "PeriodMs", "500");
  process.configureDevice("default", "Name", "<a & \"b\">");

  EXPECT_EQ(item("router", "PeriodMs"), "500");
  EXPECT_EQ(item("router", "Name"), "<a & \"b\">");

  process.configureDevice("router", "PeriodMs", "600");
  EXPECT_EQ(item("router", "PeriodMs"), "600");
}

TEST(TestProcess, HasNoDevicesAtFirst) {
  const QOVTestProcess process;

  EXPECT_THROW(item("router", "PeriodMs"), CQOV_Exception);
}

TEST(TestProcess, StartsAnew) {
  {
    QOVTestProcess process;
    process.configure("COLLECTOR", "PeriodMs", "500");
    process.configureDevice("default", "PeriodMs", "500");
    ASSERT_EQ(item("router", "PeriodMs"), "500");
    fs::create_directory(fs::path(process.folder()) / "stray");
    CQOVDebugKitGuard guard(0, "void before()");
    guard.info(1, __FUNCTION__, __LINE__, "from before");
  }
  const QOVTestProcess process;

  EXPECT_EQ(setting("COLLECTOR", "PeriodMs"), "nothing");
  EXPECT_THROW(item("router", "PeriodMs"), CQOV_Exception);
  EXPECT_FALSE(fs::exists(fs::path(process.folder()) / "stray"));
  EXPECT_EQ(process.log().find("from before"), std::string::npos);
}

TEST(TestProcess, KeepsItsFolderWhenAChildEnds) {
  const QOVTestProcess process;

  EXPECT_EXIT(std::exit(3), testing::ExitedWithCode(3), "");
  EXPECT_TRUE(fs::exists(process.folder()));
}

TEST(TestProcess, KeepsTheLogFromInfoUp) {
  const QOVTestProcess process;
  CQOVDebugKitGuard guard(0, "void here()");
  guard.info(1, __FUNCTION__, __LINE__, "worth %d line", 1);
  guard.debug(2, __FUNCTION__, __LINE__, "not worth one%s", "");

  EXPECT_NE(process.log().find("worth 1 line"), std::string::npos) << process.log();
  EXPECT_EQ(process.log().find("not worth one"), std::string::npos);
}

}  // namespace
