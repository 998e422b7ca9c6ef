#include "tools/qovctl/agent_bundle.h"

#include <qovpub/qov_version.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

#include "modules/common/controls.h"
#include "tools/qovctl/bundle_parts.h"
#include "tools/qovctl/failure.h"
#include "tools/qovctl/option_checks.h"
#include "tools/qovctl/streams.h"
#include "tools/qovctl/whole_file.h"

namespace qov::ctl {
namespace {

constexpr const char* kStandardOutput = "-";

constexpr const char* kBundleText = R"(
The archive has the agent's answers to status, pending, slow and metrics; its configuration, with
*** in place of what looks like a secret; what "qovctl check" says of that; the ends of its logs;
its limits; and what the system tells of itself. Logs go in as they are: look at them before you
pass them on. What could not be had, as of an agent that is dead, is told on standard error and in
the archive's missing.txt, and the status is 7.
For example:
  qovctl agent --root /opt/agent bundle -o agent.tar.gz)";

std::string lineOf(const std::string& text) {
  return common::withoutControls(text) + "\n";
}

void addFiles(Bundle& bundle, const AgentTarget& target, const std::string& process,
              std::size_t mostOfLogs) {
  if (!target.socket.empty()) {
    bundle.miss("configuration and logs: --socket does not tell where they are");
    return;
  }
  // What the library reads the agent's configuration below.
  ::setenv("QOV_ROOT", target.root.c_str(), 1);
  addConfiguration(bundle, target.root, process);
  addLogs(bundle, target.root, process, mostOfLogs);
}

void addAbout(Bundle& bundle, const AgentTarget& target, const std::string& process) {
  std::string about = "made         " + utcText(bundle.time(), "%Y-%m-%dT%H:%M:%SZ") + " by user " +
                      std::to_string(::geteuid()) +
                      "\nqovctl       " QOVPUB_VERSION_STRING " with libqovpub " + QOV_Version() +
                      "\nprocess      " + lineOf(process) +
                      (target.socket.empty() ? "root         " + lineOf(target.root)
                                             : "socket       " + lineOf(target.socket));
  for (const std::string& note : bundle.notes()) {
    about += "note         " + lineOf(note);
  }
  bundle.add("about.txt", about);
}

void addMissing(Bundle& bundle) {
  std::string all;
  for (const std::string& missing : bundle.missing()) {
    complain("missing: " + missing);
    all += lineOf(missing);
  }
  if (!all.empty()) {
    bundle.add("missing.txt", all);
  }
}

Bundle collected(const AgentTarget& target, const std::string& process, std::size_t mostOfLogs) {
  Bundle bundle;
  const Json::Value status = addAnswers(bundle, target);
  addFiles(bundle, target, process, mostOfLogs);
  addSystem(bundle, status.isObject() ? status["pid"] : Json::Value());
  addAbout(bundle, target, process);
  addMissing(bundle);
  return bundle;
}

}  // namespace

void addBundleOptions(CLI::App& command, BundleOptions& options) {
  command
      .add_option("-o,--output", options.file,
                  "The archive, a .tar.gz for its owner alone; \"-\": standard output")
      ->required()
      ->check(checkNotEmpty);
  command.add_flag("--force", options.force, "Replace a file that is there");
  command.add_option("--log-mib", options.logMib, "MiB of the logs in all, from their ends")
      ->check(CLI::Range(1, 256))
      ->capture_default_str();
  command.footer(kBundleText);
}

void bundleAgent(const AgentTarget& target, const BundleOptions& options) {
  const bool isPrinted = options.file == kStandardOutput;
  const Place place = options.force ? Place::kFreeOrFile : Place::kFree;
  if (isPrinted && ::isatty(STDOUT_FILENO) != 0) {
    throw Failure(kUsage, "standard output is a terminal; -o FILE says where the archive is to be");
  }
  if (!isPrinted) {
    checkPlace(options.file, place);
  }
  const std::string process = target.socket.empty() ? processOf(target) : "agent";
  if (process.find('/') != std::string::npos) {
    throw Failure(kUsage, process + ": no process's name");
  }
  const Bundle bundle = collected(target, process, std::size_t{options.logMib} << 20);
  const std::string folder = process + "-" + utcText(bundle.time(), "%Y%m%dT%H%M%SZ");
  const std::string bytes = tarGz(folder, bundle.files());
  if (isPrinted) {
    print(bytes);
  } else {
    // A limit on the size of files is an error as a full disk is.
    static_cast<void>(std::signal(SIGXFSZ, SIG_IGN));
    WholeFile file(options.file, place, WholeFile::Readers::kOwner);
    file.write(bytes);
    file.commit();
  }
  if (!bundle.missing().empty()) {
    throw Failure(kIncomplete, (isPrinted ? "standard output" : options.file) +
                                   ": written, but something is missing in it");
  }
}

}  // namespace qov::ctl
