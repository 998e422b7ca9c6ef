#ifndef QOV_MODULES_STATUS_CLIENT_H
#define QOV_MODULES_STATUS_CLIENT_H

#include <poll.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "modules/status/descriptor.h"

namespace qov::status {

/// What a request has made that lasts as long as its connection.
using Kept = std::shared_ptr<void>;

/// One connection: a line in, a line out, and the next. Never waits.
///
/// It holds one request of kLongestRequest bytes and one answer at most: nothing is read while an
/// answer waits to be sent.
class Client {
 public:
  using Clock = std::chrono::steady_clock;
  /// The line that answers a request, its end included; nothing for what is no request.
  using Answer = std::function<std::optional<std::string>(std::string_view request)>;

  enum class State {
    kGoesOn,
    kGone,      ///< the other end has closed
    kCutOff,    ///< the same in the middle of a request, or before it had taken its answer
    kMalformed  ///< what came is no request
  };

  /// Without the end of the line.
  static constexpr std::size_t kLongestRequest = 4096;

  /// `patience` is how long a request may take to come whole, and how long its answer to be taken.
  Client(Descriptor socket, Clock::duration patience);

  int descriptor() const { return socket_.get(); }
  /// What to wait for, as poll() takes it.
  short events() const;
  /// When the client is dropped, unless a request has come or an answer has been taken by then.
  Clock::time_point deadline() const { return deadline_; }

  Kept& kept() { return kept_; }

  /// What poll() has told of it.
  void note(short events) { noted_ = events; }
  bool hasHungUp() const { return (noted_ & POLLHUP) != 0; }
  /// Whether advance() has something to do: events(), or a request that is here already.
  bool canAdvance() const { return noted_ != 0 || isReady(); }

  /// Whether the next request is here already, so that events() need not be waited for.
  bool isReady() const { return output_.empty() && hasRequest(); }

  /// Takes what has come and sends what the other end takes. One request at a time, however many
  /// have come: other clients want to be served between them.
  State advance(const Answer& answer);

 private:
  bool hasRequest() const { return input_.find('\n') != std::string::npos; }
  State receive();
  State flush();

  Descriptor socket_;
  Clock::duration patience_;
  Clock::time_point deadline_;
  std::string input_;
  std::string output_;
  std::size_t sent_ = 0;  ///< of output_
  Kept kept_;
  short noted_ = 0;
};

}  // namespace qov::status

#endif
