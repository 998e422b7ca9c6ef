#ifndef QOV_TESTS_LINK_FUZZ_PLAYED_ENDPOINT_H
#define QOV_TESTS_LINK_FUZZ_PLAYED_ENDPOINT_H

#include <poll.h>
#include <sys/types.h>

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace qov::test {

/// What a link has done to its endpoint.
struct LinkEvent {
  enum class Kind { kConnected, kRefused, kSent, kCut, kNotSent };

  Kind kind;
  std::string request{};  ///< of kSent and kCut, whole
  /// The next message of the connection; nothing if it does not come whole, or is too long.
  std::optional<std::string> answer{};
};

/// Plays an endpoint to the links of the program: its connect(), send(), recv(), poll() and the
/// clock of deadlines are this one's. So a run needs no thread, and time-outs take no time. While
/// none is there nobody listens.
///
/// The script is a row of steps. Each is a byte that says what happens (played_endpoint.cpp), a
/// byte with the number of bytes that the endpoint sends, and these.
class PlayedEndpoint {
 public:
  explicit PlayedEndpoint(std::string script);
  ~PlayedEndpoint();
  PlayedEndpoint(const PlayedEndpoint&) = delete;
  PlayedEndpoint& operator=(const PlayedEndpoint&) = delete;

  bool isOver() const { return script_.empty(); }
  /// Whoever has looked at one takes it away.
  std::deque<LinkEvent>& events() { return events_; }

  // The calls of the system. Each gives what the system would, with errno set.
  int connect();
  /// How a connection that was in progress has ended.
  int connectError();
  ssize_t send(const void* data, std::size_t length);
  ssize_t receive(void* to, std::size_t length, bool maySleep);
  int poll(pollfd& entry, int timeout);

 private:
  struct Step {
    unsigned int what;
    std::string bytes;
  };

  unsigned int nextWhat() const;
  Step takeStep();
  void playSteps(const std::string& request);
  std::optional<std::string> takeMessage();
  bool letArrive();

  std::string script_;
  std::deque<LinkEvent> events_;
  // Of the connection.
  bool isConnecting_ = false;
  int connectError_ = 0;
  bool isFull_ = false;   ///< there was no room for the request
  bool isStuck_ = false;  ///< and there never is; or the connection stays in progress
  std::string sent_;
  std::vector<std::size_t> cuts_;  ///< behind these bytes the rest comes later
  std::size_t arrived_ = 0;
  std::size_t received_ = 0;
  std::size_t read_ = 0;  ///< by takeMessage()
  int end_ = -1;          ///< 0 when the endpoint has closed it, or the error with which it ends
};

}  // namespace qov::test

#endif
