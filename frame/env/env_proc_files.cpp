#include "frame/env/env_proc_files.h"

#include <ace/Configuration.h>
#include <ace/Configuration_Import_Export.h>
#include <qovpub/qov_utility.h>

#include <cerrno>
#include <cstdlib>

#include "frame/env/env_failure.h"
#include "frame/env/env_ini_import.h"
#include "frame/env/env_proc_name.h"

// Nothing in here may log: see env_proc_info.cpp.

namespace qov {
namespace {

constexpr int kSectionMapSize = 16;

/// What a user cannot see from the path of the missing file.
std::string whyThatPath(const std::string& procName) {
  std::string hint;
  if (procName.empty()) {
    hint = "; " + whyNoProcName();
  }
  if (QOV_Utility::getQOVRootEnv().empty()) {
    hint += "; the environment variable QOV_ROOT is not set or empty";
  }
  return hint;
}

void importConfig(ACE_Configuration_Heap& heap, const std::string& cfgFileName,
                  const std::string& procName) {
  ACE_Ini_ImpExp importer(heap);
  if (importIniFile(importer, cfgFileName) != 0) {
    Failure failure = whyNoIniFile(cfgFileName);
    failure.cause += whyThatPath(procName);
    throw EnvFailure("can't open proc config file", failure);
  }
}

/// Read as the process information does, but to the end.
bool isAddress(const std::string& text) {
  constexpr unsigned long kLast = 255;
  char* end = nullptr;
  const unsigned long number = std::strtoul(text.c_str(), &end, 10);
  return end != text.c_str() && *end == '\0' && number <= kLast;
}

}  // namespace

ProcFiles procFilesOf(const std::string& procName) {
  const std::string root = QOV_Utility::getQOVRootEnv();
  const std::string directory = root + "/conf/" + procName + "/";
  return {directory, directory + procName + ".cfg", root + "/log",
          root + "/log/" + procName + ".log"};
}

std::string readProcPid(const std::string& cfgFileName, const std::string& procName) {
  Failure failure{"read the configuration", cfgFileName, 0, {}, {}};
  ACE_Configuration_Heap heap;
  if (heap.open(kSectionMapSize) != 0) {
    failure.cause = errnoText(ENOMEM);
    throw EnvFailure("can't make config", failure);
  }
  importConfig(heap, cfgFileName, procName);
  ACE_Configuration_Section_Key section;
  failure.key = "QOV_GLOBAL";
  if (heap.open_section(heap.root_section(), "QOV_GLOBAL", 0, section) != 0) {
    failure.cause = "there is no such section";
    // The text names PROC, the section's name of old; kept, operators search for it.
    throw EnvFailure("can't open section name is PROC!", failure);
  }
  ACE_TString value;
  if (heap.get_string_value(section, "PROC_PID", value) != 0) {
    failure.key += "/PROC_PID";
    failure.cause = "there is no such key";
    throw EnvFailure("can't get PROC_PID from section name is PROC!", failure);
  }
  return value.c_str();
}

std::string whyOddProcPid(const std::string& value) {
  return isAddress(value) ? ""
                          : "\"" + value + "\" is no number from 0 to 255; " +
                                std::to_string(StrToUint(value)) + " is taken";
}

}  // namespace qov
