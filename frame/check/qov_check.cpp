#include <qovpub/qov_check.h>

#include <sys/stat.h>

#include <cerrno>

#include "config/xml/device_faults.h"
#include "frame/check/configuration_check.h"
#include "frame/check/library_check.h"
#include "module/module_list.h"

namespace qov {
namespace {

/// There need not be one.
void checkDevices(const std::string& file, std::vector<QOVFinding>& findings) {
  struct stat status {};
  if (::stat(file.c_str(), &status) != 0 && (errno == ENOENT || errno == ENOTDIR)) {
    return;
  }
  for (const DeviceFault& fault : faultsOfDevices(file)) {
    findings.push_back({fault.isIgnored, file, fault.line, fault.cause});
  }
}

void checkModules(const ModuleList& list, const std::string& directory, const std::string& process,
                  const QOVCheckOptions& how, std::vector<QOVFinding>& findings) {
  for (const Failure& ignored : list.ignored) {
    findings.push_back(findingOf(ignored, true));
  }
  if (!list.failure.cause.empty()) {
    findings.push_back(findingOf(list.failure));
  }
  for (const auto& [module, fault] : faultsOfLibraries(list.names, process, how)) {
    findings.push_back({false, markerOf(directory, module), 0, fault});
  }
}

}  // namespace
}  // namespace qov

std::string QOVFinding::text() const {
  return file + (line != 0 ? ":" + std::to_string(line) : "") + ": " +
         (isWarning ? "warning: " : "") + what;
}

std::vector<QOVFinding> QOV_Check(const std::string& process, const QOVCheckOptions& how) {
  const qov::ProcFiles files = qov::procFilesOf(process);
  const qov::ModuleList modules = qov::modulesOf(files.directory);
  std::vector<QOVFinding> findings;
  // Without the list of modules nobody knows whose sections are read.
  const std::vector<QOVModuleSection> none;
  const std::vector<QOVModuleSection>& sections = modules.isOpen ? how.sections : none;
  qov::checkConfiguration(files, process, qov::sectionReaders(sections, modules.names), findings);
  qov::checkDevices(files.directory + process + ".xml", findings);
  qov::checkModules(modules, files.directory, process, how, findings);
  return findings;
}
