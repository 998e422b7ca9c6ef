#ifndef QOV_TESTS_PROCESS_BROKEN_SET_UPS_H
#define QOV_TESTS_PROCESS_BROKEN_SET_UPS_H

#include <cstddef>
#include <filesystem>
#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "tests/process/agent_process.h"

namespace qov::test {

enum class Result {
  kFails,  ///< exit status 1
  kWarns,  ///< runs all the same
  kEnds,   ///< the module ends the process, see exitStatus and signal; a daemon's starter fails
};

enum class Log {
  kFile,    ///< the lines are also in the log
  kNone,    ///< a daemon's lines are in the system's log, too
  kNotYet,  ///< it goes wrong before there is a log
};

enum class Check {
  kProblem,
  kWarning,
  kWithCreate,  ///< a problem, found with --create
  kNothing,     ///< it goes wrong in a module's init(), which only a start calls
};

/// A way to break an agent and what it must say.
struct BrokenSetUp {
  const char* name;
  std::function<void(AgentProcess&)> breakIt;
  /// On standard error, with the root's path in the place of "<root>" and the configuration
  /// directory's in that of "<conf>".
  std::vector<std::string> says;
  Result result = Result::kFails;
  Log log = Log::kNotYet;
  bool notAsRoot = false;
  int exitStatus = 1;  ///< in the foreground
  int signal = 0;
  bool letsALibraryGo = false;
  Check check = Check::kProblem;  ///< what `qovctl check` finds
};

inline void PrintTo(const BrokenSetUp& setUp, std::ostream* out) {
  *out << setUp.name;
}

const std::vector<BrokenSetUp>& brokenSetUps();

/// Has `agent` know its root by a longer path, so that its log's has `length` characters.
void useLogPathOf(std::size_t length, AgentProcess& agent);

/// `text`, out of `says`, with the directories that it names.
std::string filledIn(std::string text, const AgentRoot& root);

}  // namespace qov::test

#endif
