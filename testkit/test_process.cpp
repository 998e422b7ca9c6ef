#include <qovpub/qov_ini_operator.h>
#include <qovpub/qov_testkit.h>
#include <qovpub/qov_utility.h>
#include <qovpub/qov_xml.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include "testkit/test_log.h"

namespace {

namespace fs = std::filesystem;

/// The process's one folder. The library computes paths once, so it serves all tests of a process.
class Folder {
 public:
  static Folder& instance() {
    static Folder folder;
    return folder;
  }

  ~Folder() {
    // Not in a child of this process, such as a death test that ends by exit().
    if (::getpid() == owner_) {
      std::error_code ignored;
      fs::remove_all(path_, ignored);
    }
  }

  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  const std::string& path() const { return path_; }

  fs::path conf() const {
    std::string process;
    CProcInfo::getProcName(process);
    return fs::path(path_) / "conf" / process;
  }
  fs::path settings() const { return conf() / (conf().filename().string() + ".cfg"); }
  fs::path devices() const { return conf() / (conf().filename().string() + ".xml"); }

  void startAnew() const {
    for (const auto& entry : fs::directory_iterator(path_)) {
      fs::remove_all(entry.path());
    }
    fs::create_directories(conf());
    fs::create_directories(fs::path(path_) / "log");
  }

 private:
  Folder() {
    std::string name = (fs::temp_directory_path() / "qovtestkitXXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) {
      throw std::runtime_error("cannot make the folder " + name);
    }
    path_ = name;
    ::setenv("QOV_ROOT", path_.c_str(), 1);
  }

  const pid_t owner_ = ::getpid();
  std::string path_;
};

void write(const fs::path& file, const std::string& text, std::ios::openmode mode = {}) {
  std::ofstream stream(file, std::ios::binary | std::ios::out | mode);
  stream << text;
  stream.close();
  if (!stream) {
    throw std::runtime_error("cannot write " + file.string());
  }
}

/// `text` as the value of an attribute.
std::string quoted(const std::string& text) {
  std::string out = "\"";
  for (const char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\0':
        throw std::invalid_argument("a device configuration has no zero bytes");
      default:
        out += c;
    }
  }
  return out + '"';
}

using Devices = std::map<std::string, std::map<std::string, std::string>>;

std::string documentOf(const Devices& devices) {
  std::string text = "<AgentConfig>\n  <DeviceConfig>\n";
  for (const auto& [device, items] : devices) {
    text += "    <Device DeviceDesc=" + quoted(device) + ">\n";
    for (const auto& [key, value] : items) {
      text += "      <ConfigItem Key=" + quoted(key) + " Value=" + quoted(value) + "/>\n";
    }
    text += "    </Device>\n";
  }
  return text + "  </DeviceConfig>\n</AgentConfig>\n";
}

}  // namespace

QOVTestProcess::QOVTestProcess() : log_(std::make_unique<qov::TestLog>()) {
  const Folder& files = Folder::instance();
  files.startAnew();
  write(files.settings(), "[QOV_GLOBAL]\nPROC_PID=" + std::to_string(kId) + "\n");
  sections_.insert("QOV_GLOBAL");
  if (QOV_Utility::getProcessCfgFileName() != files.settings()) {
    throw std::runtime_error("this process has read " + QOV_Utility::getProcessCfgFileName() +
                             " before the test could make " + files.settings().string());
  }
  write(files.devices(), documentOf(devices_));
  CQOVXmlConfig::close();
}

QOVTestProcess::~QOVTestProcess() {
  CQOVXmlConfig::close();
}

void QOVTestProcess::configure(const std::string& section, const std::string& key,
                               const std::string& value) {
  const fs::path file = Folder::instance().settings();
  if (sections_.insert(section).second) {
    write(file, "[" + section + "]\n", std::ios::app);
  }
  CQOV_Ini_Operator settings;
  if (settings.open(nullptr) != 0 ||
      settings.setConfigItem(section.c_str(), key.c_str(), value) != 0) {
    throw std::invalid_argument("cannot set " + key + " of section " + section + " in " +
                                file.string());
  }
}

void QOVTestProcess::configureDevice(const std::string& device, const std::string& key,
                                     const std::string& value) {
  devices_[device][key] = value;
  write(Folder::instance().devices(), documentOf(devices_));
  CQOVXmlConfig::close();
}

std::string QOVTestProcess::log() const {
  return log_->text();
}

const std::string& QOVTestProcess::folder() const {
  return Folder::instance().path();
}
