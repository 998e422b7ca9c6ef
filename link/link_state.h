#ifndef QOV_LINK_LINK_STATE_H
#define QOV_LINK_LINK_STATE_H

#include <ace/SOCK_Stream.h>
#include <ace/Thread_Mutex.h>
#include <qovpub/qov_long_socket.h>

#include <memory>
#include <utility>

#include "link/endpoint.h"
#include "link/interruption.h"

/// What a link has: its connection, and how far it is.
///
/// Thread: with lock_ held, the locks, interruption_ and limits_ excepted: interruption_ guards
///         itself, limits_ is constant after construction.
/// Owns:   the connection and the buffer.
/// Errors: the constructor throws std::bad_alloc.
///
/// Hidden: a nested class would be shown to the library's users as the one around it is.
struct __attribute__((visibility("hidden"))) CQOVLongSocket::State {
  static constexpr unsigned int kHeadSize = sizeof(TLVMsgHeadV3);

  State() = default;
  State(std::unique_ptr<qov::Endpoint> endpoint, const Limits& limits)
      : endpoint_(std::move(endpoint)), limits_(limits) {}

  ACE_INET_Addr server_;  ///< tried last
  ACE_SOCK_Stream peer_;
  ACE_Thread_Mutex lock_;
  ACE_Thread_Mutex next_;  ///< held by whoever waits for lock_ and has it next
  /// Of kMaxMessage bytes. Not zeroed: most of it is never used.
  const std::unique_ptr<unsigned char[]> buffer_{new unsigned char[kMaxMessage]};
  std::unique_ptr<qov::Endpoint> endpoint_;  ///< the configured one is read when it connects first
  qov::Interruption interruption_;
  const Limits limits_{};
  /// What has come on this connection behind the last message: bytes of buffer_.
  struct {
    unsigned int begin = 0;
    unsigned int end = 0;
  } ahead_;
  bool sleeps_ = false;  ///< a receive on this connection may sleep as long as a reply may take
  bool cut_ = false;     ///< the endpoint lacks the end of a request on this connection
  bool retry_ = false;   ///< the steps are the exchange's second attempt
  int receiveError_ = 0;
};

#endif
