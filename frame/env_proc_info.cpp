#include <ace/Configuration.h>
#include <ace/Configuration_Import_Export.h>
#include <qovpub/qov_exception.h>
#include <qovpub/qov_utility.h>

#include "frame/env_ini_import.h"

// Nothing in here may log, nor call what logs: a log sink may ask for the process name, and with
// this object under construction that question can only fail.

namespace {

constexpr int kSectionMapSize = 16;

std::string readProcPid(const std::string& cfgFileName) {
  ACE_Configuration_Heap heap;
  if (heap.open(kSectionMapSize) != 0) {
    throw CQOV_Exception("can't make config");
  }
  ACE_Ini_ImpExp importer(heap);
  if (qov::importIniFile(importer, cfgFileName) != 0) {
    throw CQOV_Exception("can't open proc config file");
  }
  ACE_Configuration_Section_Key section;
  if (heap.open_section(heap.root_section(), "QOV_GLOBAL", 0, section) != 0) {
    // The text names PROC, the section's name of old; kept, operators search for it.
    throw CQOV_Exception("can't open section name is PROC!");
  }
  ACE_TString value;
  if (heap.get_string_value(section, "PROC_PID", value) != 0) {
    throw CQOV_Exception("can't get PROC_PID from section name is PROC!");
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
  pid_ = StrToUint(readProcPid(cfgFileName_));
}
