#ifndef QOV_ENDURE_MEMORY_AGENT_H
#define QOV_ENDURE_MEMORY_AGENT_H

#include <cstdint>

class CQOV_TaskScheduler;

/// What the agent of campaign "memory" and its two modules agree on.
namespace qov::endure {

constexpr std::uint8_t kAskingModule = 70;
constexpr std::uint8_t kAnsweringModule = 71;
constexpr std::uint64_t kGoAndAsk = 1;  ///< to the asking one, which then asks the other one
constexpr std::uint64_t kQuestion = 2;

}  // namespace qov::endure

/// The program's: a module gives its scheduler in initEnv(), and the program waits for its workers.
extern "C" void qov_endure_scheduler(CQOV_TaskScheduler* scheduler);

/// The program's, for the asking module: how its request has ended, as QOVAnswer::text() says it.
extern "C" void qov_endure_asked(const char* how);

#endif
