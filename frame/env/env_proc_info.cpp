#include <ace/Configuration.h>
#include <ace/Configuration_Import_Export.h>
#include <qovpub/qov_utility.h>

#include <cerrno>

#include "frame/env/env_failure.h"
#include "frame/env/env_ini_import.h"
#include "frame/env/env_proc_name.h"

// Nothing in here may log, nor call what logs: a log sink may ask for the process name, and with
// this object under construction that question can only fail.

template class ACE_Singleton<CProcInfo, ACE_Thread_Mutex>;

namespace {

using qov::EnvFailure;
using qov::Failure;

constexpr int kSectionMapSize = 16;

/// What a user cannot see from the path of the missing file.
std::string whyThatPath(const std::string& procName) {
  std::string hint;
  if (procName.empty()) {
    hint = "; " + qov::whyNoProcName();
  }
  if (QOV_Utility::getQOVRootEnv().empty()) {
    hint += "; the environment variable QOV_ROOT is not set or empty";
  }
  return hint;
}

void importConfig(ACE_Configuration_Heap& heap, const std::string& cfgFileName,
                  const std::string& procName) {
  ACE_Ini_ImpExp importer(heap);
  if (qov::importIniFile(importer, cfgFileName) != 0) {
    Failure failure = qov::whyNoIniFile(cfgFileName);
    failure.cause += whyThatPath(procName);
    throw EnvFailure("can't open proc config file", failure);
  }
}

std::string readProcPid(const std::string& cfgFileName, const std::string& procName) {
  Failure failure{"read the configuration", cfgFileName, 0, {}, {}};
  ACE_Configuration_Heap heap;
  if (heap.open(kSectionMapSize) != 0) {
    failure.cause = qov::errnoText(ENOMEM);
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

}  // namespace

CProcInfo::CProcInfo() {
  getProcName(procName_);
  const std::string root = QOV_Utility::getQOVRootEnv();
  cfgPath_ = root + "/conf/" + procName_ + "/";
  cfgFileName_ = cfgPath_ + procName_ + ".cfg";
  logPath_ = root + "/log";
  logFileName_ = root + "/log/" + procName_ + ".log";
  pid_ = StrToUint(readProcPid(cfgFileName_, procName_));
}
