#ifndef QOV_TOOLS_QOVCTL_TRACE_LOG_H
#define QOV_TOOLS_QOVCTL_TRACE_LOG_H

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <vector>

namespace qov::ctl {

/// One step of a message, as the agent tells it.
struct TraceStep {
  enum class Kind : std::uint8_t { kSend, kDispatch, kBegin, kEnd, kAnswer, kTimeOut, kDrop };
  static constexpr unsigned int kRequest = 1;
  static constexpr unsigned int kResponse = 2;
  /// Operation code, serial number, who asks and who is asked: a response has its request's.
  using Key = std::tuple<std::uint64_t, std::uint32_t, unsigned int, unsigned int>;

  Key key() const {
    return type == kResponse ? Key(operation, serial, to, from) : Key(operation, serial, from, to);
  }

  std::int64_t time = 0;  ///< nanoseconds
  std::int64_t thread = 0;
  std::size_t section = 0;  ///< index in TraceLog::sections()
  std::uint64_t operation = 0;
  std::uint32_t serial = 0;
  unsigned int module = 0;
  unsigned int type = 0;
  unsigned int from = 0;
  unsigned int to = 0;
  Kind kind = Kind::kSend;
  std::string reason;  ///< why it is dropped
};

/// What an agent has told of its messages' steps.
///
/// Thread: one.
/// Errors: common::BadJson for what is no answer of an agent.
class TraceLog {
 public:
  /// A span of time in which no step was lost: steps were lost between one and the next.
  struct Section {
    std::int64_t begin;
    std::int64_t end;
  };

  /// `start` is the answer to "trace-start".
  explicit TraceLog(const Json::Value& start);

  /// Takes the answer to a "trace-read".
  void add(const Json::Value& part);
  /// Whether the agent may have more steps already.
  bool isMore() const { return more_; }
  /// The last section ends then, at the earliest, unless there are more steps to read.
  void endAt(std::int64_t time);

  const std::string& process() const { return process_; }
  std::int64_t pid() const { return pid_; }
  /// "20 collector"; "20" for a module that does not run.
  std::string module(unsigned int id) const;
  /// "m20-worker-1"; "thread 4711" for one that had ended when its name was looked up.
  std::string thread(std::int64_t id) const;

  /// Of one thread in their order, of several nearly.
  const std::vector<TraceStep>& steps() const { return steps_; }
  /// At least one if there are steps.
  const std::vector<Section>& sections() const { return sections_; }
  std::uint64_t lost() const { return lost_; }

 private:
  void addSteps(const Json::Value& steps);

  std::string process_;
  std::int64_t pid_ = 0;
  std::map<unsigned int, std::string> modules_;
  std::map<std::int64_t, std::string> threads_;
  std::vector<TraceStep> steps_;
  std::vector<Section> sections_;
  std::uint64_t lost_ = 0;
  bool gap_ = false;  ///< between steps_ and what comes
  bool more_ = false;
};

}  // namespace qov::ctl

#endif
