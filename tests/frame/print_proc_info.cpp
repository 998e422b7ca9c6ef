// Prints what the process environment says of this process, a line per item.
#include <qovpub/qov_exception.h>
#include <qovpub/qov_utility.h>

#include <iostream>

int main() {
  std::string name;
  CProcInfo::getProcName(name);
  std::cout << "name " << name << "\n";
  try {
    std::cout << "pid " << QOV_Utility::getProcPID() << "\n"
              << "process " << QOV_Utility::getProcessName() << "\n"
              << "cfgPath " << QOV_Utility::getProcessCfgPath() << "\n"
              << "cfgFile " << QOV_Utility::getProcessCfgFileName() << "\n"
              << "logPath " << QOV_Utility::getProcessLogPath() << "\n"
              << "logFile " << QOV_Utility::getProcessLogFileName() << "\n";
  } catch (const CQOV_Exception& exception) {
    std::cout << exception.what() << "\n";
  }
}
