#ifndef QOV_TOOLS_QOVCTL_FLEET_ANSWERS_H
#define QOV_TOOLS_QOVCTL_FLEET_ANSWERS_H

#include <json/value.h>

#include <cstddef>
#include <map>
#include <string>

#include "tools/qovctl/agent_parts.h"

namespace qov::ctl {

/// What came of asking one agent.
struct Outcome {
  static constexpr const char* kAnswered = "answered";
  static constexpr const char* kRefused = "refused";
  static constexpr const char* kBad = "bad answer";
  static constexpr const char* kNotDelivered = "not delivered";
  static constexpr const char* kNoAnswer = "no answer";
  static constexpr const char* kOffline = "offline";

  std::string agent;
  const char* result;        ///< one of these
  double milliseconds = -1;  ///< negative without an answer
  std::string text{};        ///< the answer in one line, or why there is none
  Json::Value message{};     ///< null without one
};

/// Prints the outcomes: as JSON each as it comes, as a table when all have come.
///
/// Thread: one.
/// Owns:   the table's rows.
/// Errors: Failure.
class Answers {
 public:
  /// Of `several` agents the table has no more than the start of each answer.
  Answers(bool json, bool several) : json_(json), several_(several) {}

  void add(const Outcome& outcome);
  /// Prints the table, of all that have come.
  void printTable() const;
  /// Throws kIncomplete if somebody has not answered.
  void check() const;

 private:
  const bool json_;
  const bool several_;
  std::map<std::string, Row> rows_;            ///< by agent
  std::map<std::string, std::size_t> counts_;  ///< by result
  std::size_t agents_ = 0;
};

}  // namespace qov::ctl

#endif
