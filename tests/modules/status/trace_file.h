#ifndef QOV_TESTS_MODULES_STATUS_TRACE_FILE_H
#define QOV_TESTS_MODULES_STATUS_TRACE_FILE_H

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace qov::test {

/// What "qovctl agent trace" writes.
class TraceFile {
 public:
  /// Checks that it is of Chrome's trace event format: that each event has what its phase requires,
  /// the slices of a thread lie within each other or apart, and each flow begins and ends in one.
  explicit TraceFile(const std::string& text);

  const nlohmann::json& about() const { return document_["otherData"]; }
  /// The events of that phase, in the order of the file.
  std::vector<nlohmann::json> events(const std::string& phase) const;
  /// Those of them with that name.
  std::vector<nlohmann::json> events(const std::string& phase, const std::string& name) const;
  /// The points of flows with the message of that operation code and serial number.
  std::vector<nlohmann::json> flow(unsigned int operation, unsigned int serial) const;
  /// The name of the thread that the event is of.
  std::string threadOf(const nlohmann::json& event) const;

 private:
  void checkFields() const;
  void checkNesting() const;
  void checkFlows() const;

  const nlohmann::json document_;
};

}  // namespace qov::test

#endif
