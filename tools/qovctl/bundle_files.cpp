#include <qovpub/qov_check.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "modules/common/controls.h"
#include "modules/delivered_sections.h"
#include "tools/qovctl/bundle_folders.h"
#include "tools/qovctl/bundle_parts.h"
#include "tools/qovctl/numbers.h"
#include "tools/qovctl/regular_file.h"
#include "tools/qovctl/secrets.h"

namespace qov::ctl {
namespace {

/// Whether something is blanked in the line, or it is not there: the text may be cut.
bool lacks(const std::string& text, unsigned line) {
  std::size_t begin = 0;
  for (unsigned at = 1; at < line && begin < text.size(); ++at) {
    begin = std::min(text.find('\n', begin), text.size() - 1) + 1;
  }
  const std::string_view shown = std::string_view(text).substr(begin);
  return shown.empty() || shown.substr(0, shown.find('\n')).find(kBlank) != std::string_view::npos;
}

/// Whether what is said of a configuration file may quote what nobody is to see. `shown` is its
/// text in the bundle; null without, as of a symbolic link, which the check follows.
bool mayQuote(const QOVFinding& finding, bool isIni, const std::string* shown) {
  const bool isLineShown = shown != nullptr && finding.line > 0;
  if (isLineShown && lacks(*shown, finding.line)) {
    return true;
  }
  // An element of the device configuration may stand in several lines. "Unknown key" looks secret,
  // too: such a key may be the end of a value.
  return !(isLineShown && isIni) && looksSecret(finding.what);
}

std::string shownFinding(QOVFinding finding, const std::vector<ArchivedFile>& files) {
  const std::filesystem::path path = finding.file;
  const bool isIni = path.extension() == ".cfg";
  if (isIni || path.extension() == ".xml") {
    const auto shown = std::find_if(files.begin(), files.end(), [&](const ArchivedFile& file) {
      return file.name == "conf/" + path.filename().string();
    });
    const std::string* const text = shown == files.end() ? nullptr : &shown->content;
    finding.what = mayQuote(finding, isIni, text) ? std::string(kBlank) : withoutUser(finding.what);
  }
  return common::withoutControls(finding.text()) + "\n";
}

std::string findingsOf(const std::string& process, const std::vector<ArchivedFile>& files) {
  std::string all;
  QOVCheckOptions how;
  how.sections = deliveredSections();
  for (const QOVFinding& finding : QOV_Check(process, how)) {
    all += shownFinding(finding, files);
  }
  return all.empty() ? "nothing to complain of\n" : all;
}

/// Rotated logs have a number behind their names; the newest first.
std::vector<std::string> logsIn(const std::string& folder, const std::string& process) {
  constexpr std::uint64_t kHighest = 999999999;
  const std::string log = process + ".log";
  std::vector<std::pair<std::uint64_t, std::string>> logs;
  for (const std::string& name : namesIn(folder)) {
    if (name == log) {
      logs.emplace_back(0, name);
    } else if (name.compare(0, log.size() + 1, log + ".") == 0) {
      if (const auto number = numberOf(name.substr(log.size() + 1), kHighest)) {
        logs.emplace_back(*number, name);
      }
    }
  }
  std::sort(logs.begin(), logs.end());
  std::vector<std::string> names;
  names.reserve(logs.size());
  for (auto& [number, name] : logs) {
    names.push_back(std::move(name));
  }
  return names;
}

/// Takes the ends of files until there is no more room.
class Logs {
 public:
  Logs(Bundle& bundle, std::size_t room) : bundle_(bundle), room_(room) {}

  void take(const std::string& path, const std::string& name) {
    const RegularFile file(path);
    // Rotation moves a file to the next name, also while this looks from one to the next.
    if (!taken_.emplace(file.status().st_dev, file.status().st_ino).second) {
      bundle_.miss(path + ": left out, the logs were rotated meanwhile, and this one is there");
      return;
    }
    if (room_ == 0) {
      bundle_.note(name + ": left out, --log-mib has no room for it");
      return;
    }
    const std::size_t part = std::min(file.size(), room_);
    std::string end = file.read(part, file.size() - part);
    if (end.size() < part) {
      bundle_.miss(path + ": it became shorter meanwhile");
    }
    if (part < file.size()) {
      end.erase(0, end.find('\n') + 1);
      bundle_.note(name + ": the last " + std::to_string(end.size()) + " of " +
                   std::to_string(file.size()) + " bytes");
    }
    room_ -= part;
    bundle_.add({name, std::move(end), file.status().st_mtime});
  }

 private:
  Bundle& bundle_;
  std::size_t room_;
  std::set<std::pair<dev_t, ino_t>> taken_;
};

}  // namespace

void addConfiguration(Bundle& bundle, const std::string& root, const std::string& process) {
  const std::string folder = root + "/conf/" + process;
  const std::string cfg = process + ".cfg";
  const std::string xml = process + ".xml";
  bundle.addFile("conf/" + cfg, folder + "/" + cfg, &withoutSecretsOfIni);
  // There need not be one.
  std::error_code error;
  if (std::filesystem::symlink_status(folder + "/" + xml, error).type() !=
      std::filesystem::file_type::not_found) {
    bundle.addFile("conf/" + xml, folder + "/" + xml, &withoutSecretsOfXml);
  }
  bundle.attempt([&] { bundle.add("conf/files.txt", listing(folder)); });
  bundle.attempt([&] { bundle.add("check.txt", findingsOf(process, bundle.files())); });
}

void addLogs(Bundle& bundle, const std::string& root, const std::string& process,
             std::size_t most) {
  const std::string folder = root + "/log";
  bundle.attempt([&] {
    bundle.add("log/files.txt", listing(folder));
    const std::filesystem::space_info disk = std::filesystem::space(folder);
    bundle.note(folder + ": " + std::to_string(disk.available) + " of " +
                std::to_string(disk.capacity) + " bytes of the disk are free");
    const std::vector<std::string> names = logsIn(folder, process);
    if (names.empty() || names.front() != process + ".log") {
      bundle.miss(folder + "/" + process + ".log: there is none");
    }
    Logs logs(bundle, most);
    for (const std::string& name : names) {
      bundle.attempt([&] { logs.take(folder + "/" + name, "log/" + name); });
    }
  });
}

}  // namespace qov::ctl
