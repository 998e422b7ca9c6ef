#ifndef QOV_BENCH_TABLE_SERVER_H
#define QOV_BENCH_TABLE_SERVER_H

#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

/// A management endpoint that does as little as one can: it reads a message and writes the next of
/// its answers, with the serial number of the request, in one blocking call each.
class TableServer {
 public:
  using Message = std::vector<unsigned char>;

  /// Answers with `answers` in turn, on each connection from the first one on.
  explicit TableServer(std::vector<Message> answers);
  ~TableServer();
  TableServer(const TableServer&) = delete;
  TableServer& operator=(const TableServer&) = delete;

  std::uint16_t port() const { return port_; }
  const std::vector<Message>& answers() const { return answers_; }

 private:
  void accept();
  void serve(int socket) const;

  const std::vector<Message> answers_;
  int listener_;
  std::uint16_t port_ = 0;
  std::vector<std::thread> connections_;
  std::thread thread_;
};

/// The other side without anything around it: blocking calls on a socket, and what anybody has to
/// do who makes them. They end after 30 seconds; the answer has to be whole and to have the
/// request's serial number.
class RawClient {
 public:
  explicit RawClient(std::uint16_t port);
  ~RawClient();
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  /// Gives `request` the next serial number, sends it and receives into `answer`, which has room
  /// for the whole answer.
  void roundTrip(TableServer::Message& request, TableServer::Message& answer);

 private:
  int socket_;
  std::uint16_t serial_ = 0;
};

#endif
