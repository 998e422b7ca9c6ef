#ifndef QOV_TOOLS_QOV_ENDPOINT_OPTIONS_H
#define QOV_TOOLS_QOV_ENDPOINT_OPTIONS_H

#include <optional>
#include <string>
#include <vector>

#include "tools/qov-endpoint/listener.h"

namespace qov::endpoint {

/// How the program ends.
enum ExitStatus { kStopped = 0, kFailed = 1, kUsage = 2 };

/// What the command line says.
struct Options {
  Address address;
  std::chrono::seconds grace;
  std::string tables;    ///< file; empty for those of this machine
  std::string counts;    ///< file; empty for none
  std::string scenario;  ///< file; empty for none
  std::vector<std::string> faults;
  Log::Level level = Log::Level::kEvents;
};

/// Reads the command line. Sets `exitStatus` and returns nothing when that is all there is to do:
/// help was asked for, or the line is wrong.
std::optional<Options> readOptions(int argc, char** argv, int& exitStatus);

}  // namespace qov::endpoint

#endif
