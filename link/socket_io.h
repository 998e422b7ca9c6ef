#ifndef QOV_LINK_SOCKET_IO_H
#define QOV_LINK_SOCKET_IO_H

#include <ace/INET_Addr.h>
#include <sys/types.h>

#include <cstddef>

#include "link/deadline.h"

/// The system calls of the link. ACE's operations of this kind take a signal for a failure, switch
/// the socket to non-blocking and back in every call, and count a time-out anew for each piece.
/// `socket` is one from connectTo(); without one they fail at once, with ENOTCONN. `interruption`
/// ends waits; sending and receiving also fail while it is set. errno is ECANCELED then.
namespace qov {

class Interruption;

/// A connected socket that never blocks, or ACE_INVALID_HANDLE with errno set, ETIMEDOUT when the
/// time was over. Programs that the process starts do not inherit it.
ACE_HANDLE connectTo(const ACE_INET_Addr& address, const Deadline& deadline,
                     const Interruption& interruption);

/// Sends once, when the socket takes anything: gives the number of bytes that it has taken, or -1
/// with errno set, ETIME when the time was over. A peer that is gone raises no SIGPIPE.
ssize_t sendWithin(ACE_HANDLE socket, const unsigned char* data, std::size_t length,
                   const Deadline& deadline, const Interruption& interruption);

/// Receives exactly `length` bytes. False with errno set: ETIME when the time was over, ENOLINK
/// when the peer has closed the connection.
bool receiveAll(ACE_HANDLE socket, char* to, std::size_t length, const Deadline& deadline,
                const Interruption& interruption);

}  // namespace qov

#endif
