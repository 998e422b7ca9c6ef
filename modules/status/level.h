#ifndef QOV_MODULES_STATUS_LEVEL_H
#define QOV_MODULES_STATUS_LEVEL_H

namespace qov::status {

inline constexpr int kHighestLevel = 5;

/// The level of the process's log in force, as key "LogLevel" has it (0 to 5); 2 stands for 3, too.
int logLevel();

/// Sets it, 0 to 5, until it is set again or "LOG_CFG" is read again.
void setLogLevel(int level);

}  // namespace qov::status

#endif
