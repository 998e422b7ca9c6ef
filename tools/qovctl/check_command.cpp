#include "tools/qovctl/check_command.h"

#include <qovpub/qov_check.h>
#include <qovpub/qov_utility.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <system_error>
#include <vector>

#include "modules/common/controls.h"
#include "modules/delivered_sections.h"
#include "tools/qovctl/failure.h"

namespace qov::ctl {
namespace {

namespace fs = std::filesystem;

struct Count {
  std::size_t problems = 0;
  std::size_t warnings = 0;

  void tell(const QOVFinding& finding) {
    ++(finding.isWarning ? warnings : problems);
    std::fprintf(stderr, "%s\n", common::withoutControls(finding.text()).c_str());
  }
};

std::string numbered(std::size_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

/// Those with a configuration file. The folder may have others.
std::set<std::string> processesIn(const fs::path& folder, Count& count) {
  std::set<std::string> names;
  std::error_code error;
  for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
    const std::string name = at->path().filename().string();
    std::error_code unused;
    if (fs::exists(fs::symlink_status(at->path() / (name + ".cfg"), unused))) {
      names.insert(name);
    }
  }
  if (error) {
    count.tell({false, folder.string(), 0, error.message()});
  } else if (names.empty()) {
    count.tell({false, folder.string(), 0, "there is no <process>/<process>.cfg"});
  }
  return names;
}

}  // namespace

void check(const CheckOptions& options) {
  if (!options.root.empty()) {
    ::setenv("QOV_ROOT", options.root.c_str(), 1);
  }
  Count count;
  const std::string root = QOV_Utility::getQOVRootEnv();
  if (options.root.empty() && !root.empty() && root.front() != '/') {
    count.tell({false, root, 0,
                "the environment variable QOV_ROOT is no absolute path; only a start with -n takes "
                "it"});
  }
  const fs::path folder = root + "/conf";
  const std::set<std::string> processes =
      options.process.empty() ? processesIn(folder, count) : std::set<std::string>{options.process};
  QOVCheckOptions how;
  how.perLibrary = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::duration<double>(options.timeout));
  how.creates = options.create;
  how.sections = deliveredSections();
  for (const std::string& process : processes) {
    for (const QOVFinding& finding : QOV_Check(process, how)) {
      count.tell(finding);
    }
  }
  if (count.problems > 0) {
    throw Failure(kProblems, numbered(count.problems, "problem") + " and " +
                                 numbered(count.warnings, "warning"));
  }
}

}  // namespace qov::ctl
