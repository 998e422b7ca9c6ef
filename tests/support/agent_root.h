#ifndef QOV_TESTS_SUPPORT_AGENT_ROOT_H
#define QOV_TESTS_SUPPORT_AGENT_ROOT_H

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/files.h"

/// A temporary directory tree for "QOV_ROOT" with the configuration of one process, removed with
/// the object. Failures throw std::runtime_error or std::filesystem::filesystem_error.
class AgentRoot {
 public:
  /// Makes <root>/conf/<process>/ and <root>/log/, without a configuration file.
  explicit AgentRoot(const std::string& process) : process_(process) {
    std::filesystem::create_directories(confDirectory());
    std::filesystem::create_directories(path() / "log");
  }

  const std::filesystem::path& path() const { return directory_.path(); }
  std::filesystem::path confDirectory() const { return path() / "conf" / process_; }
  std::filesystem::path cfgFile() const { return confDirectory() / (process_ + ".cfg"); }
  std::filesystem::path logFile() const { return path() / "log" / (process_ + ".log"); }

  /// Writes a configuration that logs to the file at `logLevel` (0 all, 5 errors only).
  void writeConfig(int logLevel = 1) const {
    write(cfgFile(),
          "[QOV_GLOBAL]\nPROC_PID=7\n[LOG_CFG]\nSendTerminal=0\nChkInterval=600\n"
          "LogFileMaxSize=10240\nLogFileMaxCnt=3\nLogLevel=" +
              std::to_string(logLevel) + "\n");
  }

  /// Puts the marker of `module` into the configuration directory.
  void addModule(const std::string& module) const {
    write(confDirectory() / (module + ".mod"), "");
  }

  /// Takes all markers out.
  void removeModules() const {
    std::vector<std::filesystem::path> markers;
    for (const auto& entry : std::filesystem::directory_iterator(confDirectory())) {
      if (entry.path().extension() == ".mod") {
        markers.push_back(entry.path());
      }
    }
    for (const auto& marker : markers) {
      std::filesystem::remove_all(marker);
    }
  }

  /// Replaces `file` in one step, so that a reader never sees half of it.
  static void write(const std::filesystem::path& file, const std::string& text) {
    const std::filesystem::path fresh = file.string() + "~";
    std::ofstream(fresh) << text;
    std::filesystem::rename(fresh, file);
  }

 private:
  const std::string process_;
  const qov::test::TemporaryDirectory directory_;
};

#endif
