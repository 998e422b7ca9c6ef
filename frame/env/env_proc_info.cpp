#include <qovpub/qov_utility.h>

#include "frame/env/env_proc_files.h"

// Nothing in here may log, nor call what logs: a log sink may ask for the process name, and with
// this object under construction that question can only fail.

template class ACE_Singleton<CProcInfo, ACE_Thread_Mutex>;

CProcInfo::CProcInfo() {
  getProcName(procName_);
  const qov::ProcFiles files = qov::procFilesOf(procName_);
  cfgPath_ = files.directory;
  cfgFileName_ = files.configuration;
  logPath_ = files.logDirectory;
  logFileName_ = files.log;
  pid_ = StrToUint(qov::readProcPid(cfgFileName_, procName_));
}
