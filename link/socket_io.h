#ifndef QOV_LINK_SOCKET_IO_H
#define QOV_LINK_SOCKET_IO_H

#include <ace/INET_Addr.h>
#include <ace/Time_Value.h>
#include <sys/types.h>

#include <cstddef>

#include "link/deadline.h"

/// The system calls of the link. ACE's operations of this kind take a signal for a failure, switch
/// the socket to non-blocking and back in every call, and count a time-out anew for each piece.
/// `socket` is one from connectTo(). `interruption` ends waits; errno is ECANCELED then.
namespace qov {

class Interruption;

/// A connected socket, or ACE_INVALID_HANDLE with errno set, ETIMEDOUT when the time was over.
/// Programs that the process starts do not inherit it.
ACE_HANDLE connectTo(const ACE_INET_Addr& address, const Deadline& deadline,
                     Interruption& interruption);

/// Lets receiveWithin() sleep in the system for `time`. False when it has to poll.
bool letSleep(ACE_HANDLE socket, const ACE_Time_Value& time);

/// False with errno set: ECANCELED while the interruption is set, ENOTCONN without a socket.
bool isUsable(ACE_HANDLE socket, const Interruption& interruption);

/// Sends once, when the socket is usable and takes anything: gives the number of bytes that it has
/// taken, or -1 with errno set, ETIME when the time was over. A peer that is gone raises no signal.
ssize_t sendWithin(ACE_HANDLE socket, const unsigned char* data, std::size_t length,
                   const ACE_Time_Value& timeout, Interruption& interruption);

/// Receives once, when anything has come to a usable socket: gives the number of bytes, at most
/// `length`, or -1 with errno set: ETIME when the time was over, ENOLINK when the peer has closed
/// the connection. `maySleep`: the time of letSleep() is what is left.
ssize_t receiveWithin(ACE_HANDLE socket, char* to, std::size_t length, bool maySleep,
                      const Deadline& deadline, Interruption& interruption);

}  // namespace qov

#endif
